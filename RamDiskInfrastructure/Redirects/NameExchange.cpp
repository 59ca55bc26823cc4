#include "RamDiskInfrastructure/Redirects/NameExchange.h"

#include <cerrno>

#include <fcntl.h>
#include <stdio.h> // NOLINT: renameat
#include <sys/stat.h>

namespace ramdisk {

int renameToFreeName(const FileDescriptor& folder, const std::string& from, const std::string& to) noexcept {
    const int error = renameExclusively(folder, from, to);
    if (error == 0 || !isExchangeMissing(error)) {
        return error;
    }
    // Some network file systems cannot do it in one step. A look beforehand is what is left; a folder is
    // never replaced unless it is empty.
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
