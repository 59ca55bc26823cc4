#include "RamDiskInfrastructure/Linux/SavedContents/MountedDisk.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskCore/Values/ASCII.h"
#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/Linux/Host/MountTable.h"
#include "RamDiskInfrastructure/Linux/Mounting/VolumeMarkLinux.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <utility>

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace ramdisk {

namespace {

/// Whether the path is that of the root of a mount. Kernels that cannot tell (before 5.8) are believed.
bool isMountRoot(const std::filesystem::path& path) {
    struct statx status {};
    if (statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, STATX_TYPE, &status) != 0) {
        return false;
    }
    return (status.stx_attributes_mask & STATX_ATTR_MOUNT_ROOT) == 0
           || (status.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
}

/// Whether so much lies on the volume that to read it again takes longer than to end a watch, for which the
/// kernel needs a hundredth of a second.
bool isWorthAWatch(const FileDescriptor& root) {
    constexpr std::uint64_t manyBytes = 64U << 20U;
    constexpr std::uint64_t manyFiles = 4096;
    struct statvfs volume {};
    return fstatvfs(root.get(), &volume) == 0
           && (std::uint64_t{volume.f_blocks - volume.f_bfree} * volume.f_frsize >= manyBytes
               || volume.f_files - volume.f_ffree >= manyFiles);
}

/// A name that differs from every other, and the same in lower case.
std::array<std::string, 2> probeNames() {
    const auto upper = UUID::random().text();
    constexpr const char* prefix = ".ramdisk-probe-";
    return {prefix + upper, prefix + lowerCased(upper)};
}

} // namespace

MountedDisk MountedDisk::open(const RamDisk& disk, const LinuxHost& host) {
    if (host.firstRung() != HostRung::kernel) {
        throw RamDiskError(RamDiskError::ContentsTransferFailed{
            "keeping files needs the right to mount, which this process does not have."});
    }
    if (!disk.mountPoint) {
        throw RamDiskError(RamDiskError::DiskEjected{});
    }
    const auto& path = *disk.mountPoint;
    auto root = openFolder(AT_FDCWD, path.c_str());
    if (!root) {
        if (errno == ENOENT || errno == ENOTDIR || errno == ELOOP) {
            throw RamDiskError(RamDiskError::DiskEjected{});
        }
        throw SystemCallError("open", path);
    }
    MountedDisk mounted(path, std::move(root));
    if (!mounted.isPresent()) {
        throw RamDiskError(RamDiskError::DiskEjected{});
    }
    const auto mark = readVolumeMark(fmt::format("/proc/self/fd/{}/.", mounted.root_.get()));
    if (mark.instance && disk.instance && *mark.instance != *disk.instance) {
        throw RamDiskError(RamDiskError::DiskEjected{});
    }
    return mounted;
}

std::optional<std::filesystem::path> MountedDisk::mountBelow(const LinuxHost& host) const {
    const auto mounts = MountTable::read(host.proc);
    const auto* inner = mounts.below(mountPoint_);
    return inner != nullptr ? std::optional(inner->mountPoint) : std::nullopt;
}

bool MountedDisk::isPresent() const {
    struct stat now {};
    struct stat held {};
    // The number of a volume's device is not given to another one as long as it is held open.
    return lstat(mountPoint_.c_str(), &now) == 0 && fstat(root_.get(), &held) == 0
           && now.st_dev == held.st_dev && now.st_ino == held.st_ino && isMountRoot(mountPoint_);
}

bool MountedDisk::mergesNames() const {
    const auto [upper, lower] = probeNames();
    const FileDescriptor probe(
        openat(root_.get(), upper.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!probe) {
        throw SystemCallError("try the names of the disk");
    }
    struct stat status {};
    const bool merges = fstatat(root_.get(), lower.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
    unlinkat(root_.get(), upper.c_str(), 0);
    return merges;
}

HugePages MountedDisk::hugePages(const LinuxHost& host) const {
    struct stat held {};
    if (fstat(root_.get(), &held) != 0) {
        throw SystemCallError("look at the disk");
    }
    const auto mounts = MountTable::read(host.proc).entries();
    const bool isOffered = std::any_of(mounts.begin(), mounts.end(), [&](const MountEntry& mount) {
        return mount.device == held.st_dev && mount.fileSystem == "tmpfs"
               && mount.options.find("huge=advise") != std::string::npos;
    });
    return isOffered ? HugePages::onRequest : HugePages::none;
}

MountedSource::MountedSource(MountedDisk disk, LatestCopy latest)
    : disk_(std::move(disk)),
      latest_(std::move(latest)),
      mount_(::open_tree(disk_.root().get(), "", OPEN_TREE_CLONE | OPEN_TREE_CLOEXEC | AT_EMPTY_PATH)),
      own_(mount_ ? ::openat(mount_.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC) : -1) {
    if (!own_) {
        traceRefused("save", "a mount of its own", "what lies below other mounts is left out");
    }
}

SaveSource::Status MountedSource::takeStatus(const ProgressObserver& observer) {
    if (!manifest_ && isWorthAWatch(disk_.root())) {
        watch_ = WriteWatch::begin(disk_.root());
        trace("save", "{}",
              watch_ ? "the kernel tells what is written meanwhile"
                     : "no watch on writing: everything is read again");
    }
    auto now = !watch_     ? TreeManifest::scan(root(), observer)
               : manifest_ ? TreeManifest::scanAgain(*watch_, *manifest_, observer)
                           : TreeManifest::scan(*watch_, observer);
    // A second look at a watched disk takes unchanged folders from the first, without what was left out.
    auto unsavable = UnsavableFiles::takeFrom(now);
    if (watch_ && manifest_) {
        unsavable_.add(std::move(unsavable));
    } else {
        unsavable_ = std::move(unsavable);
    }
    const bool isSame = !std::exchange(isDistrusted_, false) && manifest_ && !now.firstDifference(*manifest_);
    manifest_ = std::move(now);
    if (isSame && watch_) {
        // What is left to do does not need it.
        ending_ = std::async([watch = std::move(watch_)]() mutable { watch.reset(); });
        watch_.reset();
    }
    return isSame ? Status::unchanged : Status::changed;
}

const TreeManifest& MountedSource::manifest() {
    if (!manifest_) {
        static_cast<void>(takeStatus({}));
    }
    return *manifest_;
}

} // namespace ramdisk
