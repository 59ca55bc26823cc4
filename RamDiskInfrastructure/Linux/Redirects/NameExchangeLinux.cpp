#include "RamDiskInfrastructure/Redirects/NameExchange.h"

#include <cerrno>

#include <fcntl.h>
#include <stdio.h> // NOLINT: renameat2
#include <sys/stat.h>

namespace ramdisk {

int exchangeNames(const FileDescriptor& folder, const std::string& one, const std::string& other) noexcept {
    return renameat2(folder.get(), one.c_str(), folder.get(), other.c_str(), RENAME_EXCHANGE) == 0 ? 0
                                                                                                   : errno;
}

int renameToFreeName(const FileDescriptor& folder, const std::string& from, const std::string& to) noexcept {
    if (renameat2(folder.get(), from.c_str(), folder.get(), to.c_str(), RENAME_NOREPLACE) == 0) {
        return 0;
    }
    if (!isExchangeMissing(errno)) {
        return errno;
    }
    // Some network file systems know neither flag. A look beforehand is what is left; a folder is never
    // replaced unless it is empty.
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
