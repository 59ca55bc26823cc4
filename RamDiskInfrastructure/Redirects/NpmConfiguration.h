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
/// npm uses the last such line, and ignores lines below the head of a section.
[[nodiscard]] std::optional<std::string> cacheLine(std::string_view content, const LineChoice& choice = {});

/// The folder that such a line names, read as npm reads it.
[[nodiscard]] std::string folderInLine(std::string_view line);

/// The line that names `folder`.
/// @throws std::runtime_error when no line could make npm read it.
[[nodiscard]] std::string lineFor(const std::filesystem::path& folder);

/// `content` with `line` in the place of its last chosen cache line, or added to it. A file that does not
/// exist (absent) becomes the line with a line end. Any other content gets no line end that it did not have,
/// so that `withoutCacheLine` can tell what to leave.
[[nodiscard]] std::string withCacheLine(const std::optional<std::string>& content, std::string_view line,
                                        const LineChoice& choice = {});

/// `content` without its last chosen cache line: what it was before `withCacheLine`. Absent when there was no
/// file.
[[nodiscard]] std::optional<std::string> withoutCacheLine(std::string_view content,
                                                          const LineChoice& choice = {});

} // namespace ramdisk
