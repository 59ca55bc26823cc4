#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ramdisk {

/// A 128-bit identifier, written as 36 characters in upper-case hexadecimal with hyphens.
class UUID {
public:
    using Bytes = std::array<std::uint8_t, 16>;

    constexpr explicit UUID(const Bytes& bytes) : bytes_(bytes) {}

    /// A fresh random (version 4) identifier from the system's random source.
    [[nodiscard]] static UUID random();

    /// Reads the 36-character form, in upper or lower case. Absent for anything else.
    [[nodiscard]] static std::optional<UUID> parse(std::string_view text);

    [[nodiscard]] std::string text() const;
    [[nodiscard]] const Bytes& bytes() const noexcept { return bytes_; }

    friend auto operator<=>(const UUID&, const UUID&) = default;

private:
    Bytes bytes_;
};

} // namespace ramdisk
