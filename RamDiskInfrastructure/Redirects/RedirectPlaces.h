#pragma once

#include "RamDiskInfrastructure/Stores/CacheFolders.h"

#include <filesystem>

/// Where tools keep their folders. This differs between platforms.
namespace ramdisk {

/// A path below the home folder, in a form in which equal folders have equal paths. Where file names ignore
/// letter case, this form does too.
[[nodiscard]] std::filesystem::path comparableFolder(const std::filesystem::path& relative);

} // namespace ramdisk
