#pragma once

#include "RamDiskInfrastructure/Redirects/HomeTree.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <sys/stat.h>

/// What must hold of a folder before anything is done with it.
namespace ramdisk {

/// @param folder the real place of the folder.
/// @param reserved folders of this system's own.
/// @param shown the folder's name in messages.
/// @throws std::runtime_error when the folder and the disk, or a reserved folder, lie in one another.
void requireApart(const std::filesystem::path& folder, const std::filesystem::path& mountPoint,
                  const std::vector<std::filesystem::path>& reserved, const std::string& shown);

/// The folder `name` that is to be moved; absent when there is none yet.
/// @throws std::runtime_error when it is no folder, a link, or the root of another file system, or when a
///         link on the way to it leads nowhere.
[[nodiscard]] std::optional<struct stat> requireMovable(const OpenedFolder& parent, const std::string& name,
                                                        const std::string& shown);

/// Who owns the home folder can name any folder in it. When root acts for that user, only folders that the
/// user may change himself are touched.
/// @throws std::runtime_error
void requireOwnersFolder(const std::filesystem::path& home, const OpenedFolder& parent,
                         const std::string& shown);

/// Whether the folder belongs to who owns the home folder.
[[nodiscard]] bool isOfHomeOwner(const std::filesystem::path& home, const FileDescriptor& folder);

} // namespace ramdisk
