#pragma once

#include <string>

/// Characters as grammars of ASCII know them, the same in every locale.
namespace ramdisk {

[[nodiscard]] constexpr bool isDigit(char character) noexcept {
    return character >= '0' && character <= '9';
}
[[nodiscard]] constexpr char lowered(char character) noexcept {
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
}
[[nodiscard]] constexpr bool isLetter(char character) noexcept {
    return lowered(character) >= 'a' && lowered(character) <= 'z';
}

/// `text` with `lowered` letters.
[[nodiscard]] inline std::string lowerCased(std::string text) {
    for (auto& character : text) {
        character = lowered(character);
    }
    return text;
}

} // namespace ramdisk
