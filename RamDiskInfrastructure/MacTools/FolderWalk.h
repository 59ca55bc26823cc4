#pragma once

#include <filesystem>
#include <functional>

#include <sys/stat.h>

namespace ramdisk {

/// Called with the path below the root and the status of an item.
/// @returns whether to go into a folder.
using FolderVisitor = std::function<bool(const std::filesystem::path& item, const struct stat& status)>;

/// Visits everything below `root`, each folder before its contents, in the order of names. Follows no link
/// and enters no other volume. What vanishes meanwhile is skipped.
/// @throws SystemCallError
void walkFolder(const std::filesystem::path& root, const FolderVisitor& visitor);

} // namespace ramdisk
