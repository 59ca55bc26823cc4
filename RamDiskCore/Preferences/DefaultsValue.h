#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace ramdisk {

struct DefaultsEntry;

/// One value of the user defaults, in the types that every platform's store knows.
struct DefaultsValue {
    struct Data {
        std::string bytes;
        friend bool operator==(const Data&, const Data&) = default;
    };
    using Array = std::vector<DefaultsValue>;
    /// In no particular order, each key once.
    using Dictionary = std::vector<DefaultsEntry>;

    std::variant<bool, std::int64_t, double, std::string, Data, Array, Dictionary> value;

    /// The value as a `Type`. Null when it is of another type.
    template <typename Type>
    [[nodiscard]] const Type* as() const {
        return std::get_if<Type>(&value);
    }

    /// The entry of a dictionary. Null when there is no such entry, or this is not a dictionary.
    [[nodiscard]] const DefaultsValue* at(std::string_view key) const;

    friend bool operator==(const DefaultsValue& left, const DefaultsValue& right);
};

struct DefaultsEntry {
    std::string key;
    DefaultsValue value;

    friend bool operator==(const DefaultsEntry& left, const DefaultsEntry& right);
};

} // namespace ramdisk
