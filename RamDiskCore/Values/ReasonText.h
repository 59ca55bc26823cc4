#pragma once

#include <exception>
#include <string>
#include <string_view>

namespace ramdisk {

/// Why something failed, to stand behind another error's own words: the reason of one of our errors, or its
/// case in plain words where it carries none, and what any other error says of itself.
[[nodiscard]] std::string reasonText(const std::exception& error);

/// A case's name as people write it: "files kept changing" for "filesKeptChanging".
[[nodiscard]] std::string wordsOf(std::string_view caseName);

} // namespace ramdisk
