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

} // namespace ramdisk
