#pragma once

#include <string_view>
#include <variant>

namespace ramdisk {

/// The name, as scripts read it, of the case that a variant holds. Each case has its own as a constant
/// `caseName`.
template <typename... Cases>
[[nodiscard]] std::string_view nameOfCase(const std::variant<Cases...>& value) {
    return std::visit([](const auto& oneCase) { return std::string_view(oneCase.caseName); }, value);
}

} // namespace ramdisk
