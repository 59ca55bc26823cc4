#include "RamDiskInfrastructure/Redirects/NameExchange.h"

#include <cerrno>

#include <fcntl.h>
#include <stdio.h> // NOLINT: renameatx_np
#include <sys/stat.h>

namespace ramdisk {

int exchangeNames(const FileDescriptor& folder, const std::string& one, const std::string& other) noexcept {
    return renameatx_np(folder.get(), one.c_str(), folder.get(), other.c_str(), RENAME_SWAP) == 0 ? 0 : errno;
}

int renameToFreeName(const FileDescriptor& folder, const std::string& from, const std::string& to) noexcept {
    if (renameatx_np(folder.get(), from.c_str(), folder.get(), to.c_str(), RENAME_EXCL) == 0) {
        return 0;
    }
    if (!isExchangeMissing(errno)) {
        return errno;
    }
    // Network volumes may know neither flag. A look beforehand is what is left; a folder is never replaced
    // unless it is empty.
    struct stat status {};
    if (fstatat(folder.get(), to.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) {
        return EEXIST;
    }
    return renameat(folder.get(), from.c_str(), folder.get(), to.c_str()) == 0 ? 0 : errno;
}

bool isExchangeMissing(int error) noexcept {
    return error == EINVAL || error == ENOSYS || error == ENOTSUP;
}

} // namespace ramdisk
