#include "RamDiskInfrastructure/Linux/Mounting/FreeSpaceTrimming.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskInfrastructure/Commands/FileDescriptor.h"

#include <limits>

#include <fcntl.h>
#include <linux/fs.h>
#include <linux/magic.h>
#include <sys/ioctl.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace ramdisk {

void FreeSpaceTrimming::trim(const RamDisk& disk) noexcept {
    struct statfs status {};
    if (!disk.mountPoint || !disk.isCreatedByRamDisk) {
        return;
    }
    const auto root = openFolder(AT_FDCWD, disk.mountPoint->c_str());
    if (!root || fstatfs(root.get(), &status) != 0 || status.f_type != EXT4_SUPER_MAGIC) {
        return;
    }
    // What was deleted a moment ago is free only once it is written down.
    static_cast<void>(syncfs(root.get()));
    fstrim_range range{};
    range.len = std::numeric_limits<__u64>::max();
    if (ioctl(root.get(), FITRIM, &range) != 0) {
        traceRefused("trim", "FITRIM", "the memory of deleted files stays taken");
    }
}

} // namespace ramdisk
