#include "RamDiskInfrastructure/Linux/Mounting/LinuxWriteBlocking.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace ramdisk {

namespace {

bool setAttributes(const RamDisk& disk, std::uint64_t set, std::uint64_t clear) noexcept {
    // Without the volume there, this would be the file system that its folder lies on.
    if (!disk.mountPoint || !disk.attachment) {
        return false;
    }
    mount_attr attributes{};
    attributes.attr_set = set;
    attributes.attr_clr = clear;
    return syscall(SYS_mount_setattr, AT_FDCWD, disk.mountPoint->c_str(), AT_SYMLINK_NOFOLLOW, &attributes,
                   sizeof attributes)
           == 0;
}

} // namespace

bool LinuxWriteBlocking::block(const RamDisk& disk) {
    return setAttributes(disk, MOUNT_ATTR_RDONLY, 0);
}

void LinuxWriteBlocking::allow(const RamDisk& disk) noexcept {
    static_cast<void>(setAttributes(disk, 0, MOUNT_ATTR_RDONLY));
}

} // namespace ramdisk
