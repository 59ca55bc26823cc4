#include "RamDiskInfrastructure/Stores/FlushToDisk.h"

#include <fcntl.h>

namespace ramdisk {

int flushToDisk(const FileDescriptor& file) noexcept {
    // Plain fsync leaves the data in the drive's own cache here. Network volumes know only that one.
    if (fcntl(file.get(), F_FULLFSYNC) == 0 || fsync(file.get()) == 0) {
        return 0;
    }
    return errno;
}

int flushFileSystem(const FileDescriptor& file) noexcept {
    // Nothing here flushes one volume alone.
    sync();
    return flushToDisk(file);
}

} // namespace ramdisk
