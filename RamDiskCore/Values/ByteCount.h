#pragma once

#include <compare>
#include <cstdint>
#include <exception>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

namespace ramdisk {

/// A number of bytes.
///
/// Every multiple is binary: users write "GB" and mean 1024 MB of memory, so that is what they get.
struct ByteCount {
    /// Multiples in which sizes are written and read.
    enum class Unit { byte, kibibyte, mebibyte, gibibyte, tebibyte };

    std::uint64_t bytes = 0;

    /// How many bytes one `unit` is.
    [[nodiscard]] static constexpr std::uint64_t factor(Unit unit) {
        return std::uint64_t{1} << (10U * static_cast<unsigned>(unit));
    }

    [[nodiscard]] static constexpr ByteCount of(std::uint64_t count, Unit unit) {
        return ByteCount{count * factor(unit)};
    }

    /// Reads a size such as "512M", "2 gib" or "1,5GB"; a bare number counts in `defaultUnit`.
    /// @throws ByteCountParsingError
    [[nodiscard]] static ByteCount parse(std::string_view text, Unit defaultUnit);

    friend constexpr auto operator<=>(const ByteCount&, const ByteCount&) = default;
};

/// Why a text is not a size.
class ByteCountParsingError : public std::exception {
public:
    struct Malformed {
        std::string text;
        friend bool operator==(const Malformed&, const Malformed&) = default;
    };
    struct UnknownUnit {
        std::string unit;
        friend bool operator==(const UnknownUnit&, const UnknownUnit&) = default;
    };
    struct TooLarge {
        std::string text;
        friend bool operator==(const TooLarge&, const TooLarge&) = default;
    };
    struct Empty {
        friend bool operator==(const Empty&, const Empty&) = default;
    };
    using Case = std::variant<Malformed, UnknownUnit, TooLarge, Empty>;

    explicit ByteCountParsingError(Case value) : value_(std::move(value)) {}

    [[nodiscard]] const Case& value() const noexcept { return value_; }
    [[nodiscard]] const char* what() const noexcept override { return "ByteCountParsingError"; }

private:
    Case value_;
};

} // namespace ramdisk
