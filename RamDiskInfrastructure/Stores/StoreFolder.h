#pragma once

#include "RamDiskInfrastructure/Commands/FileDescriptor.h"

#include <filesystem>

#include <sys/types.h>

/// How stores open the folders that they work in. A folder in a user's home may have a link in its way. For
/// that user it leads where he wants; for root it may lead anywhere, so root follows no link that somebody
/// else could have made.
namespace ramdisk {

/// The open folder. No descriptor, with errno set, when it cannot be opened.
/// @throws std::runtime_error in one sentence when such a link stands in the way.
[[nodiscard]] FileDescriptor openStoreFolder(const std::filesystem::path& folder);

/// Makes the folder and its parents where they are missing, with mode 0700 unless another is given. What root
/// makes in another user's folder belongs to that user.
/// @throws std::system_error; std::runtime_error as `openStoreFolder`, with nothing made beyond the link.
void makeFolders(const std::filesystem::path& folder, mode_t mode = 0700);

/// When root made `made` in another user's folder, gives it to that user, who otherwise could not open it.
/// Only for what the caller has just created himself.
void giveToOwnerOf(const FileDescriptor& folder, const FileDescriptor& made) noexcept;

} // namespace ramdisk
