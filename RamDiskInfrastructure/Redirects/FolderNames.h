#pragma once

#include <filesystem>
#include <string>

/// How folders of the home folder are called on a disk.
namespace ramdisk {

/// The whole path as one name, so that no two folders share one: “+” stands between its parts. A name that
/// is too long is shortened to a hash and its end.
/// @param folder relative to the home folder, normalised.
[[nodiscard]] std::string nameOfFolder(const std::filesystem::path& folder);

/// The folder that has this name, unless the name was shortened.
[[nodiscard]] std::filesystem::path folderOfName(const std::string& name);

} // namespace ramdisk
