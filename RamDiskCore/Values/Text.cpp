#include "RamDiskCore/Values/Text.h"

#include "RamDiskCore/Values/ASCII.h"

#include <utf8proc.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <optional>
#include <utility>

namespace ramdisk {

namespace {

constexpr bool isASCII(char character) {
    return static_cast<unsigned char>(character) < 0x80;
}

bool isASCII(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char character) { return isASCII(character); });
}

const utf8proc_uint8_t* bytesOf(std::string_view text) {
    return reinterpret_cast<const utf8proc_uint8_t*>(text.data()); // NOLINT(*-reinterpret-cast)
}

struct CodePoint {
    utf8proc_int32_t value;
    std::size_t length;
};

/// The first code point of `text`, which is not empty; absent when it is not valid UTF-8.
std::optional<CodePoint> firstCodePoint(std::string_view text) {
    if (isASCII(text.front())) {
        return CodePoint{text.front(), 1};
    }
    utf8proc_int32_t value = 0;
    const auto length = utf8proc_iterate(bytesOf(text), static_cast<utf8proc_ssize_t>(text.size()), &value);
    return length > 0 ? std::optional(CodePoint{value, static_cast<std::size_t>(length)}) : std::nullopt;
}

bool isValidUTF8(std::string_view text) {
    while (!text.empty()) {
        const auto codePoint = firstCodePoint(text);
        if (!codePoint) {
            return false;
        }
        text.remove_prefix(codePoint->length);
    }
    return true;
}

/// Control characters, separators of lines, and marks of direction other than those of single letters.
bool isControl(utf8proc_int32_t codePoint) {
    return codePoint < 0x20 || (codePoint >= 0x7f && codePoint < 0xa0) || codePoint == 0x61c
           || codePoint == 0x200e || codePoint == 0x200f || (codePoint >= 0x2028 && codePoint <= 0x202e)
           || (codePoint >= 0x2066 && codePoint <= 0x2069);
}

bool isWhiteSpace(utf8proc_int32_t codePoint) {
    if (codePoint < 0x80) {
        return codePoint == ' ' || (codePoint >= '\t' && codePoint <= '\r');
    }
    const auto category = utf8proc_category(codePoint);
    return codePoint == 0x85 || category == UTF8PROC_CATEGORY_ZS || category == UTF8PROC_CATEGORY_ZL
           || category == UTF8PROC_CATEGORY_ZP;
}

bool isWithin(utf8proc_int32_t codePoint, utf8proc_int32_t first, utf8proc_int32_t last) {
    return codePoint >= first && codePoint <= last;
}

/// A letter of a script whose letters have diacritics that people leave out. Of decomposed text.
bool takesDiacritics(utf8proc_int32_t codePoint) {
    const auto category = utf8proc_category(codePoint);
    const bool isLetter = category >= UTF8PROC_CATEGORY_LU && category <= UTF8PROC_CATEGORY_LO;
    const bool isLatin = codePoint < 0x2b0 || isWithin(codePoint, 0x1d00, 0x1eff)
                         || isWithin(codePoint, 0x2c60, 0x2c7f) || isWithin(codePoint, 0xa720, 0xa7ff)
                         || isWithin(codePoint, 0xab30, 0xab6f);
    const bool isGreek = isWithin(codePoint, 0x370, 0x3ff) || isWithin(codePoint, 0x1f00, 0x1fff);
    const bool isCyrillic = isWithin(codePoint, 0x400, 0x52f) || isWithin(codePoint, 0x1c80, 0x1c8f)
                            || isWithin(codePoint, 0xa640, 0xa69f);
    return isLetter && (isLatin || isGreek || isCyrillic);
}

bool isMark(utf8proc_int32_t codePoint) {
    const auto category = utf8proc_category(codePoint);
    return category >= UTF8PROC_CATEGORY_MN && category <= UTF8PROC_CATEGORY_ME;
}

/// `text`, which is valid and decomposed, without the marks that people leave out.
std::string withoutDiacritics(std::string_view text) {
    std::string plain;
    bool isAfterLetter = false;
    while (!text.empty()) {
        const auto codePoint = *firstCodePoint(text);
        const bool isOneMark = isMark(codePoint.value);
        isAfterLetter = isOneMark ? isAfterLetter : takesDiacritics(codePoint.value);
        if (!isOneMark || !isAfterLetter) {
            plain += text.substr(0, codePoint.length);
        }
        text.remove_prefix(codePoint.length);
    }
    return plain;
}

/// Where the last code point of `text` starts; `text` is valid and not empty.
std::size_t lastCodePointStart(std::string_view text) {
    auto start = text.size() - 1;
    while (start > 0 && (static_cast<unsigned char>(text[start]) & 0xC0U) == 0x80U) {
        --start;
    }
    return start;
}

/// Calls `visit` with each character of `text` in order, until it returns false.
template <typename Visit>
void forEachCharacter(std::string_view text, Visit visit) {
    const bool readable = isASCII(text) || isValidUTF8(text);
    while (!text.empty()) {
        std::size_t end = 1;
        if (readable) {
            auto current = *firstCodePoint(text);
            end = current.length;
            utf8proc_int32_t state = 0;
            while (end < text.size()) {
                const auto next = *firstCodePoint(text.substr(end));
                if (utf8proc_grapheme_break_stateful(current.value, next.value, &state)) {
                    break;
                }
                end += next.length;
                current = next;
            }
        }
        if (!visit(text.substr(0, end))) {
            return;
        }
        text.remove_prefix(end);
    }
}

std::optional<std::string> mapped(std::string_view text, int options) {
    utf8proc_uint8_t* result = nullptr;
    const auto length = utf8proc_map(bytesOf(text), static_cast<utf8proc_ssize_t>(text.size()), &result,
                                     static_cast<utf8proc_option_t>(options));
    const std::unique_ptr<utf8proc_uint8_t, decltype(&std::free)> owner(result, &std::free);
    if (length < 0) {
        return std::nullopt;
    }
    return std::string(result, result + length);
}

/// How many bytes at the start of `text` belong to the sequence that breaks off or cannot be: the longest run
/// that could have begun a code point, at least one.
std::size_t brokenSequenceLength(std::string_view text) {
    const auto lead = static_cast<unsigned char>(text.front());
    if (lead < 0xC2 || lead > 0xF4) {
        return 1;
    }
    const std::size_t expected = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    // Over-long forms, surrogates and what lies beyond U+10FFFF show in the second byte.
    unsigned char lowest = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
    unsigned char highest = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
    std::size_t length = 1;
    while (length < expected && length < text.size()) {
        const auto byte = static_cast<unsigned char>(text[length]);
        if (byte < lowest || byte > highest) {
            break;
        }
        lowest = 0x80;
        highest = 0xBF;
        ++length;
    }
    return length;
}

} // namespace

std::string_view trimmed(std::string_view text) {
    const bool readable = isASCII(text) || isValidUTF8(text);
    const auto codePointAt = [readable](std::string_view rest) {
        return readable ? *firstCodePoint(rest) : CodePoint{static_cast<unsigned char>(rest.front()), 1};
    };
    // A lone byte 0x85 or 0xA0 is no white space.
    const auto isBlank = [readable](const CodePoint& codePoint) {
        return (readable || codePoint.value < 0x80) && isWhiteSpace(codePoint.value);
    };
    while (!text.empty()) {
        const auto first = codePointAt(text);
        if (!isBlank(first)) {
            break;
        }
        text.remove_prefix(first.length);
    }
    while (!text.empty()) {
        const auto start = readable ? lastCodePointStart(text) : text.size() - 1;
        if (!isBlank(codePointAt(text.substr(start)))) {
            break;
        }
        text = text.substr(0, start);
    }
    return text;
}

std::vector<std::string_view> graphemes(std::string_view text) {
    std::vector<std::string_view> characters;
    forEachCharacter(text, [&characters](std::string_view character) {
        characters.push_back(character);
        return true;
    });
    return characters;
}

std::size_t graphemeCount(std::string_view text) {
    std::size_t count = 0;
    forEachCharacter(text, [&count](std::string_view) {
        ++count;
        return true;
    });
    return count;
}

std::string_view prefixOfWholeCharacters(std::string_view text, std::size_t limit) {
    std::size_t length = 0;
    forEachCharacter(text, [&length, limit](std::string_view character) {
        if (character.size() > limit - length) {
            return false;
        }
        length += character.size();
        return true;
    });
    return text.substr(0, length);
}

std::string replacingInvalidUTF8(std::string_view text) {
    std::string valid;
    valid.reserve(text.size());
    while (!text.empty()) {
        const auto codePoint = firstCodePoint(text);
        const auto length = codePoint ? codePoint->length : brokenSequenceLength(text);
        valid += codePoint ? text.substr(0, length) : std::string_view("\uFFFD");
        text.remove_prefix(length);
    }
    return valid;
}

std::string replacingControls(std::string_view text, std::string_view replacement) {
    std::string result;
    while (!text.empty()) {
        const auto codePoint = firstCodePoint(text);
        const auto length = codePoint ? codePoint->length : 1;
        result += codePoint && isControl(codePoint->value) ? replacement : text.substr(0, length);
        text.remove_prefix(length);
    }
    return result;
}

std::string escapingControls(std::string_view json) {
    std::string result;
    while (!json.empty()) {
        const auto codePoint = firstCodePoint(json);
        const auto length = codePoint ? codePoint->length : 1;
        // Those of ASCII are escaped already, or stand between values.
        if (codePoint && codePoint->value >= 0x7f && isControl(codePoint->value)) {
            std::array<char, 16> escape{};
            std::snprintf(escape.data(), escape.size(), "\\u%04x", static_cast<unsigned>(codePoint->value));
            result += escape.data();
        } else {
            result += json.substr(0, length);
        }
        json.remove_prefix(length);
    }
    return result;
}

std::string foldedName(std::string_view name) {
    name = trimmed(name);
    if (isASCII(name)) {
        std::string folded(name);
        std::transform(folded.begin(), folded.end(), folded.begin(), lowered);
        return folded;
    }
    // Stripped before it is folded: folding turns a composed "ᾳ" into two letters.
    const auto apart = mapped(name, UTF8PROC_STABLE | UTF8PROC_DECOMPOSE);
    if (!apart) {
        return std::string(name);
    }
    auto folded = mapped(withoutDiacritics(*apart), UTF8PROC_STABLE | UTF8PROC_COMPOSE | UTF8PROC_CASEFOLD);
    return folded ? *std::move(folded) : std::string(name);
}

std::string decomposed(std::string_view text) {
    if (isASCII(text)) {
        return std::string(text);
    }
    auto apart = mapped(text, UTF8PROC_STABLE | UTF8PROC_DECOMPOSE);
    return apart ? *std::move(apart) : std::string(text);
}

std::string caseFolded(std::string_view name) {
    auto folded = mapped(name, UTF8PROC_STABLE | UTF8PROC_DECOMPOSE | UTF8PROC_CASEFOLD | UTF8PROC_IGNORE);
    return folded ? *std::move(folded) : std::string(name);
}

std::string upperCased(std::string_view text) {
    std::string upper;
    while (!text.empty()) {
        const auto codePoint = firstCodePoint(text);
        if (codePoint) {
            std::array<utf8proc_uint8_t, 4> encoded{};
            const auto length = utf8proc_encode_char(utf8proc_toupper(codePoint->value), encoded.data());
            upper.append(encoded.begin(), std::next(encoded.begin(), length));
        } else {
            upper += text.front();
        }
        text.remove_prefix(codePoint ? codePoint->length : 1);
    }
    return upper;
}

std::string standardized(const std::filesystem::path& path) {
    auto text = path.lexically_normal().string();
    if (text.size() > 1 && text.back() == '/') {
        text.pop_back();
    }
    return text;
}

bool namesEqual(std::string_view left, std::string_view right) {
    left = trimmed(left);
    right = trimmed(right);
    if (left.empty() || right.empty()) {
        return false;
    }
    if (isASCII(left) && isASCII(right)) {
        return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                          [](char one, char other) { return lowered(one) == lowered(other); });
    }
    return foldedName(left) == foldedName(right);
}

} // namespace ramdisk
