#include "RamDiskInfrastructure/Redirects/NameExchange.h"

#include <cerrno>

#include <fcntl.h>
#include <stdio.h> // NOLINT: renameatx_np

namespace ramdisk {

int exchangeNames(const FileDescriptor& folder, const std::string& one, const std::string& other) noexcept {
    return renameatx_np(folder.get(), one.c_str(), folder.get(), other.c_str(), RENAME_SWAP) == 0 ? 0 : errno;
}

int renameExclusively(const FileDescriptor& folder, const std::string& from, const std::string& to) noexcept {
    return renameatx_np(folder.get(), from.c_str(), folder.get(), to.c_str(), RENAME_EXCL) == 0 ? 0 : errno;
}

} // namespace ramdisk
