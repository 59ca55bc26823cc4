#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

/// The text of an .npmrc file, changed byte for byte: line ends, comments, blanks and a missing last line end
/// stay as they are.
namespace ramdisk {

/// Chooses among cache lines; empty to take any.
using LineChoice = std::function<bool(std::string_view line)>;

/// The last chosen line that tells npm where its cache is, without its line end; absent when there is none.
/// Of several npm takes the last, and none below the head of a section.
[[nodiscard]] std::optional<std::string> cacheLine(std::string_view content, const LineChoice& choice = {});

/// The folder that such a line names, read as npm reads it.
[[nodiscard]] std::string folderInLine(std::string_view line);

/// The line that names `folder`.
/// @throws std::runtime_error when npm could not read it from any line.
[[nodiscard]] std::string lineFor(const std::filesystem::path& folder);

/// `content` with `line` in the place of its last chosen cache line, or else added. A file that is not there
/// (absent) becomes the line with a line end; every other one is given no line end that it did not have, so
/// that `withoutCacheLine` can tell what to leave.
[[nodiscard]] std::string withCacheLine(const std::optional<std::string>& content, std::string_view line,
                                        const LineChoice& choice = {});

/// `content` without its last chosen cache line: what `withCacheLine` added it to. Absent when that was no
/// file.
[[nodiscard]] std::optional<std::string> withoutCacheLine(std::string_view content,
                                                          const LineChoice& choice = {});

} // namespace ramdisk
