#include "RamDiskCore/Values/ReasonText.h"

#include "RamDiskCore/Values/RamDiskError.h"

#include <type_traits>
#include <variant>

namespace ramdisk {

std::string wordsOf(std::string_view caseName) {
    std::string words;
    for (const auto character : caseName) {
        const bool begins = character >= 'A' && character <= 'Z';
        words += begins ? " " : "";
        words += begins ? static_cast<char>(character - 'A' + 'a') : character;
    }
    return words;
}

std::string reasonText(const std::exception& error) {
    const auto* const ours = dynamic_cast<const RamDiskError*>(&error);
    if (ours == nullptr) {
        return error.what();
    }
    return std::visit(
        [ours](const auto& value) {
            if constexpr (requires { std::string(value.reason); }) {
                if (!value.reason.empty()) {
                    return value.reason;
                }
            }
            return wordsOf(ours->caseName());
        },
        ours->value());
}

} // namespace ramdisk
