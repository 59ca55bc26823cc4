#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <type_traits>

/// What is known of each enumerator, as one row of one table. A row says by `value` which enumerator it is
/// of; where it stands means nothing but the order in which users see them.
namespace ramdisk {

/// The row of an enumeration that has a name and nothing else.
template <typename Enumeration>
struct Named {
    Enumeration value;
    /// The stored and typed form.
    std::string_view name;
};

/// Whether the constant is one of its enumeration's enumerators, rather than a number between or beyond them.
template <auto constant>
[[nodiscard]] consteval bool isEnumerator() {
    // The compiler writes a name for an enumerator and a cast for any other number.
    constexpr std::string_view signature = __PRETTY_FUNCTION__;
    constexpr std::string_view label = "constant = ";
    return signature[signature.find(label) + label.size()] != '(';
}

/// How many enumerators there are, of an enumeration that counts from 0.
template <typename Enumeration, std::size_t first = 0>
[[nodiscard]] consteval std::size_t enumeratorCount() {
    if constexpr (isEnumerator<static_cast<Enumeration>(first)>()) {
        return enumeratorCount<Enumeration, first + 1>();
    }
    return first;
}

/// The rows as a table. Does not compile when an enumerator has no row or two, or when two have one name.
template <typename Row, std::size_t count>
[[nodiscard]] consteval std::array<Row, count> enumerationTable(const Row (&rows)[count]) {
    if (count != enumeratorCount<decltype(Row::value)>()) {
        throw std::logic_error("an enumerator has no row, or more than one");
    }
    for (std::size_t one = 0; one < count; ++one) {
        for (std::size_t other = 0; other < one; ++other) {
            if (rows[one].value == rows[other].value) {
                throw std::logic_error("an enumerator has two rows");
            }
            if constexpr (requires { rows[one].name == rows[other].name; }) {
                if (rows[one].name == rows[other].name) {
                    throw std::logic_error("two enumerators have one name");
                }
            }
        }
    }
    return std::to_array(rows);
}

template <typename Row, std::size_t count>
[[nodiscard]] constexpr const Row& rowOf(const std::array<Row, count>& table, decltype(Row::value) value) {
    for (const auto& row : table) {
        if (row.value == value) {
            return row;
        }
    }
    throw std::out_of_range("not an enumerator");
}

/// The table of an enumeration's names, declared beside the enumeration.
template <typename Enumeration>
inline constexpr std::nullptr_t enumerators = nullptr;

/// An enumeration with a table of names.
template <typename Enumeration>
concept NamedEnumeration =
    std::is_enum_v<Enumeration> && !std::is_same_v<std::remove_cv_t<decltype(enumerators<Enumeration>)>,
                                                   std::nullptr_t>;

/// The stored and typed form.
template <NamedEnumeration Enumeration>
[[nodiscard]] constexpr std::string_view rawValue(Enumeration value) {
    return rowOf(enumerators<Enumeration>, value).name;
}

/// Absent when no enumerator has this name.
template <NamedEnumeration Enumeration>
[[nodiscard]] constexpr std::optional<Enumeration> fromRawValue(std::string_view raw) {
    for (const auto& row : enumerators<Enumeration>) {
        if (row.name == raw) {
            return row.value;
        }
    }
    return std::nullopt;
}

/// All enumerators, in the order of their rows.
template <NamedEnumeration Enumeration>
[[nodiscard]] consteval auto allOf() {
    std::array<Enumeration, enumerators<Enumeration>.size()> all{};
    for (std::size_t index = 0; index < all.size(); ++index) {
        all[index] = enumerators<Enumeration>[index].value;
    }
    return all;
}

} // namespace ramdisk
