#pragma once

#include "RamDiskCore/Values/RedirectStatus.h"
#include "RamDiskCore/Values/RedirectTarget.h"

#include <string>

/// The texts about tools' folders on disks.
namespace ramdisk {

/// What redirects are for.
[[nodiscard]] std::string redirectsIntroduction();

/// What the target is called, such as "Homebrew downloads".
[[nodiscard]] std::string redirectTitle(const RedirectTarget& target);

/// What a user should know before the target is used, or right after.
/// @param settled the target as `FolderRedirecting::settled` gives it: where its folder lies.
/// @param startsEmpty false when its folder on the disk holds files.
[[nodiscard]] std::string redirectNote(const RedirectTarget& target, const RedirectTarget& settled,
                                       bool startsEmpty = true);

/// How things stand, such as "overridden by npm_config_cache".
[[nodiscard]] std::string statusText(const RedirectStatus& status);

} // namespace ramdisk
