#pragma once

#include "RamDiskCore/Values/KnownCache.h"

#include <filesystem>

/// Where tools keep their folders, which differs from platform to platform.
namespace ramdisk {

/// Where the cache lies, relative to the home folder.
[[nodiscard]] std::filesystem::path folderOfCache(KnownCache cache);

/// A path below the home folder in a form in which equal folders have equal paths: where names that differ in
/// letter case are one, they are here too.
[[nodiscard]] std::filesystem::path comparableFolder(const std::filesystem::path& relative);

} // namespace ramdisk
