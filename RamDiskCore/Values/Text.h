#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

/// Compares names as people do: by characters (grapheme clusters), without regard to white space around them,
/// to letter case or to accents. Text that is not valid UTF-8 is read byte by byte and never refused.
namespace ramdisk {

/// `text` without leading and trailing Unicode white space and line breaks.
[[nodiscard]] std::string_view trimmed(std::string_view text);

/// The characters of `text`, in order, as views into it.
[[nodiscard]] std::vector<std::string_view> graphemes(std::string_view text);

/// How many characters `text` has.
[[nodiscard]] std::size_t graphemeCount(std::string_view text);

/// The longest run of whole characters from the start of `text` that fits into `limit` bytes.
[[nodiscard]] std::string_view prefixOfWholeCharacters(std::string_view text, std::size_t limit);

/// `text` with every sequence that is not valid UTF-8 replaced by U+FFFD: for output of tools, and wherever a
/// text must be valid UTF-8.
[[nodiscard]] std::string replacingInvalidUTF8(std::string_view text);

/// `text` with `replacement` for each character that steers a terminal, ends a line or turns the direction of
/// writing around. What is not valid UTF-8 stays.
[[nodiscard]] std::string replacingControls(std::string_view text, std::string_view replacement);

/// A JSON document that means the same with an escape for each such character.
[[nodiscard]] std::string escapingControls(std::string_view json);

/// Two names that people would take for the same have the same form: trimmed, case folded, composed, and
/// without the diacritics of Latin, Greek and Cyrillic letters. Elsewhere marks are letters, or all there is
/// of a name. The form is the same in every locale.
[[nodiscard]] std::string foldedName(std::string_view name);

/// Two names that a volume without letter case would take for the same have the same form: case folded and
/// decomposed, with every accent and all white space kept.
[[nodiscard]] std::string caseFolded(std::string_view name);

/// `text` with its letters large, one by one and the same in every locale.
[[nodiscard]] std::string upperCased(std::string_view text);

/// `path` without ".", "..", redundant separators and a trailing one.
[[nodiscard]] std::string standardized(const std::filesystem::path& path);

/// Two texts that differ only in whether accents are composed with their letters have the same form.
[[nodiscard]] std::string decomposed(std::string_view text);

/// The one comparison of names, used by validation, suggestion, look-up by name and templates. An empty name
/// equals none.
[[nodiscard]] bool namesEqual(std::string_view left, std::string_view right);

} // namespace ramdisk
