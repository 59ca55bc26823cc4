#pragma once

#include <filesystem>
#include <functional>

#include <sys/stat.h>

namespace ramdisk {

/// Told the path below the root and the status of an item.
/// @returns whether to go into a folder.
using FolderVisitor = std::function<bool(const std::filesystem::path& item, const struct stat& status)>;

/// Visits everything below `root`, each folder before what is in it, in the order of their names. No link is
/// followed and no other volume entered; what vanishes meanwhile is passed over.
/// @throws SystemCallError
void walkFolder(const std::filesystem::path& root, const FolderVisitor& visitor);

} // namespace ramdisk
