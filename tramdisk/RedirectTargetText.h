#pragma once

#include "RamDiskCore/Values/RedirectTarget.h"

#include <optional>
#include <string>
#include <string_view>

namespace ramdisk::cli {

/// A target as users of the program write it: "xcode", "npm", "tmp", "cache:" and the name of a known cache,
/// or "folder:" and a path relative to the home folder.
[[nodiscard]] std::string targetText(const RedirectTarget& target);

/// Absent for anything else.
[[nodiscard]] std::optional<RedirectTarget> targetFromText(std::string_view text);

} // namespace ramdisk::cli
