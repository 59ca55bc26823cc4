#include "RamDiskInfrastructure/Trees/ItemStatus.h"

#include <array>

#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/sysmacros.h>

namespace ramdisk {

namespace {

struct FlagNumbers {
    ItemFlags flag;
    std::uint64_t told;
    int set;
};
constexpr std::array flagNumbers{FlagNumbers{immutableFlag, STATX_ATTR_IMMUTABLE, FS_IMMUTABLE_FL},
                                 FlagNumbers{appendOnlyFlag, STATX_ATTR_APPEND, FS_APPEND_FL},
                                 FlagNumbers{noDumpFlag, STATX_ATTR_NODUMP, FS_NODUMP_FL}};

timespec timeOf(const statx_timestamp& stamp) {
    timespec time{};
    time.tv_sec = static_cast<time_t>(stamp.tv_sec);
    time.tv_nsec = static_cast<long>(stamp.tv_nsec);
    return time;
}

} // namespace

std::optional<ItemStatus> readStatus(int folder, const char* name, int lookup) {
    ItemStatus status;
    struct statx all {};
    if (::statx(folder, name, lookup, STATX_BASIC_STATS, &all) != 0) {
        // Some sandboxes refuse the newer call.
        return ::fstatat(folder, name, &status.basic, lookup) == 0 ? std::optional(status) : std::nullopt;
    }
    auto& basic = status.basic;
    basic.st_dev = makedev(all.stx_dev_major, all.stx_dev_minor);
    basic.st_ino = all.stx_ino;
    basic.st_mode = all.stx_mode;
    basic.st_nlink = all.stx_nlink;
    basic.st_uid = all.stx_uid;
    basic.st_gid = all.stx_gid;
    basic.st_rdev = makedev(all.stx_rdev_major, all.stx_rdev_minor);
    basic.st_size = static_cast<off_t>(all.stx_size);
    basic.st_blksize = static_cast<blksize_t>(all.stx_blksize);
    basic.st_blocks = static_cast<blkcnt_t>(all.stx_blocks);
    basic.st_atim = timeOf(all.stx_atime);
    basic.st_mtim = timeOf(all.stx_mtime);
    basic.st_ctim = timeOf(all.stx_ctime);
    // Of the others no program can set them in the usual way.
    if (S_ISREG(basic.st_mode) || S_ISDIR(basic.st_mode)) {
        for (const auto& number : flagNumbers) {
            status.flags |= (all.stx_attributes & number.told) != 0 ? number.flag : ItemFlags{0};
        }
    }
    return status;
}

bool setItemFlags(int item, ItemFlags wanted) {
    int flags = 0;
    if (::ioctl(item, FS_IOC_GETFLAGS, &flags) != 0) {
        return false;
    }
    int changed = flags;
    for (const auto& number : flagNumbers) {
        changed = (wanted & number.flag) != 0 ? changed | number.set : changed & ~number.set;
    }
    return changed == flags || ::ioctl(item, FS_IOC_SETFLAGS, &changed) == 0;
}

} // namespace ramdisk
