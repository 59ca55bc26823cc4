#include "RamDiskInfrastructure/Redirects/NameExchange.h"

#include <cerrno>

#include <fcntl.h>
#include <stdio.h> // NOLINT: renameat2

namespace ramdisk {

int exchangeNames(const FileDescriptor& folder, const std::string& one, const std::string& other) noexcept {
    return renameat2(folder.get(), one.c_str(), folder.get(), other.c_str(), RENAME_EXCHANGE) == 0 ? 0
                                                                                                   : errno;
}

int renameExclusively(const FileDescriptor& folder, const std::string& from, const std::string& to) noexcept {
    return renameat2(folder.get(), from.c_str(), folder.get(), to.c_str(), RENAME_NOREPLACE) == 0 ? 0 : errno;
}

} // namespace ramdisk
