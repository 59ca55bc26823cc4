#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace ramdisk {

/// The members of a JSON object of texts, numbers and flags, read in one pass. A list of many disks reads
/// many records. Building a tree of nodes for each would cost more than the rest of the list.
///
/// A text that JSON cannot hold is stored as an object with the one member "bytes", in hexadecimal.
class FlatObject {
public:
    /// @throws std::invalid_argument when `json` is not such an object.
    [[nodiscard]] static FlatObject parse(std::string_view json);

    [[nodiscard]] bool has(std::string_view key) const { return find(key) != nullptr; }

    /// Each of these throws std::invalid_argument when the member is missing or of another type.
    [[nodiscard]] const std::string& text(std::string_view key) const;
    [[nodiscard]] std::uint64_t number(std::string_view key) const;
    [[nodiscard]] bool flag(std::string_view key) const;

private:
    using Value = std::variant<std::string, std::uint64_t, bool>;
    class Reader;

    [[nodiscard]] const Value* find(std::string_view key) const;
    template <typename Type>
    [[nodiscard]] const Type& get(std::string_view key) const;

    std::vector<std::pair<std::string, Value>> members_;
};

/// The hexadecimal form of a text that is not plain: two lower-case digits for each byte.
[[nodiscard]] std::string hexadecimal(std::string_view bytes);

} // namespace ramdisk
