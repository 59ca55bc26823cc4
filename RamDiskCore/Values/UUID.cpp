#include "RamDiskCore/Values/UUID.h"

#include <cstddef>
#include <random>

namespace ramdisk {

namespace {

constexpr std::string_view hexDigits = "0123456789ABCDEF";

constexpr bool isHyphenBefore(std::size_t byte) {
    return byte == 4 || byte == 6 || byte == 8 || byte == 10;
}

std::optional<unsigned> hexValue(char digit) {
    if (digit >= 'a' && digit <= 'f') {
        digit = static_cast<char>(digit - 'a' + 'A');
    }
    const auto position = hexDigits.find(digit);
    return position == std::string_view::npos ? std::nullopt : std::optional(static_cast<unsigned>(position));
}

} // namespace

UUID UUID::random() {
    std::random_device source;
    std::uniform_int_distribution<unsigned> byteValues(0, 255);
    Bytes bytes{};
    for (auto& byte : bytes) {
        byte = static_cast<std::uint8_t>(byteValues(source));
    }
    bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0FU) | 0x40U); // version 4
    bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3FU) | 0x80U); // the variant of RFC 9562
    return UUID(bytes);
}

std::optional<UUID> UUID::parse(std::string_view text) {
    if (text.size() != 36) {
        return std::nullopt;
    }
    Bytes bytes{};
    for (std::size_t index = 0; index < bytes.size(); ++index) {
        if (isHyphenBefore(index)) {
            if (text.front() != '-') {
                return std::nullopt;
            }
            text.remove_prefix(1);
        }
        const auto high = hexValue(text[0]);
        const auto low = hexValue(text[1]);
        if (!high || !low) {
            return std::nullopt;
        }
        bytes.at(index) = static_cast<std::uint8_t>(*high << 4U | *low);
        text.remove_prefix(2);
    }
    return UUID(bytes);
}

std::string UUID::text() const {
    std::string text;
    text.reserve(36);
    for (std::size_t index = 0; index < bytes_.size(); ++index) {
        if (isHyphenBefore(index)) {
            text += '-';
        }
        text += hexDigits[bytes_.at(index) >> 4U];
        text += hexDigits[bytes_.at(index) & 0x0FU];
    }
    return text;
}

} // namespace ramdisk
