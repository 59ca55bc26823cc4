#pragma once

#include "RamDiskInfrastructure/Commands/FileDescriptor.h"

#include <filesystem>
#include <vector>

#include <sys/stat.h>
#include <sys/types.h>

/// The system calls on files in the folders that stores work in. Each goes to the file's folder as
/// `openStoreFolder` does, so that root follows no link that another user could have put in its way, and
/// follows no link that has the file's own name.
///
/// They give what the system calls give: 0, or -1 with errno set.
/// @throws std::runtime_error as `openStoreFolder`.
namespace ramdisk::stored {

/// No descriptor, with errno set, when it cannot be opened.
[[nodiscard]] FileDescriptor open(const std::filesystem::path& file, int flags, mode_t mode = 0);

/// The status of what has the name itself.
[[nodiscard]] int status(const std::filesystem::path& file, struct stat& status);

[[nodiscard]] int rename(const std::filesystem::path& from, const std::filesystem::path& to);

/// Gives the file a second name.
[[nodiscard]] int link(const std::filesystem::path& file, const std::filesystem::path& name);

[[nodiscard]] int remove(const std::filesystem::path& file);

/// Everything in the folder, in no order; nothing when there is no folder.
/// @throws SystemCallError
[[nodiscard]] std::vector<std::filesystem::path> entries(const std::filesystem::path& folder);

} // namespace ramdisk::stored
