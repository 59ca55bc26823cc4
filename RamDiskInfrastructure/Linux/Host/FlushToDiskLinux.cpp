#include "RamDiskInfrastructure/Stores/FlushToDisk.h"

namespace ramdisk {

int flushToDisk(const FileDescriptor& file) noexcept {
    while (fsync(file.get()) != 0) {
        if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

int flushFileSystem(const FileDescriptor& file) noexcept {
    return syncfs(file.get()) == 0 ? 0 : errno;
}

} // namespace ramdisk
