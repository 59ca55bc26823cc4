#include "RamDiskInfrastructure/Linux/Mounting/LinuxWriteBlocking.h"

#include "RamDiskCore/Ports/Tracing.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace ramdisk {

namespace {

bool setAttributes(const RamDisk& disk, std::uint64_t set, std::uint64_t clear) noexcept {
    // Without the volume there, this would be the file system that its folder lies on.
    if (!disk.mountPoint || !disk.attachment) {
        errno = ENOENT;
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

WriteBlocking::Outcome LinuxWriteBlocking::block(const RamDisk& disk) {
    if (setAttributes(disk, MOUNT_ATTR_RDONLY, 0)) {
        return Outcome::blocked;
    }
    const auto outcome = errno == EBUSY ? Outcome::busy : Outcome::unsupported;
    traceRefused("mounts", "making the disk read-only",
                 outcome == Outcome::busy ? "the caller tries again" : "the caller does without");
    return outcome;
}

void LinuxWriteBlocking::allow(const RamDisk& disk) noexcept {
    if (!setAttributes(disk, 0, MOUNT_ATTR_RDONLY)) {
        traceRefused("mounts", "letting programs write again", "the disk is gone or stays read-only");
    }
}

} // namespace ramdisk
