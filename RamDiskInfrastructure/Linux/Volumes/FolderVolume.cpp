#include "RamDiskInfrastructure/Linux/Volumes/FolderVolume.h"

#include "RamDiskCore/Values/ByteCountFormat.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/Linux/Host/SmallFile.h"
#include "RamDiskInfrastructure/Linux/Mounting/VolumeMarkLinux.h"
#include "RamDiskInfrastructure/Linux/Volumes/LinuxFormat.h"

#include <fmt/format.h>

#include <algorithm>

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <unistd.h>

namespace ramdisk {

namespace {

namespace fs = std::filesystem;

/// What the files below a folder hold, each inode counted once.
ByteCount bytesBelow(const fs::path& folder) {
    ByteCount sum;
    std::error_code error;
    for (fs::recursive_directory_iterator entry(folder, fs::directory_options::skip_permission_denied, error),
         end;
         !error && entry != end; entry.increment(error)) {
        struct stat status {};
        if (lstat(entry->path().c_str(), &status) == 0 && status.st_nlink > 0) {
            const auto links = S_ISDIR(status.st_mode) ? 1U : status.st_nlink;
            sum.bytes += static_cast<std::uint64_t>(status.st_blocks) * 512 / links;
        }
    }
    return sum;
}

/// Opens the folders below to their owner: package managers seal what they unpack, and nothing can be deleted
/// from a sealed folder. Follows no links.
void letOwnerIn(const fs::path& folder) {
    static_cast<void>(fchmodat(AT_FDCWD, folder.c_str(), 0700, AT_SYMLINK_NOFOLLOW));
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator(folder, ignored)) {
        struct stat status {};
        if (lstat(entry.path().c_str(), &status) == 0 && S_ISDIR(status.st_mode)) {
            letOwnerIn(entry.path());
        }
    }
}

std::optional<ByteCount> freeBytes(const fs::path& folder) {
    struct statfs volume {};
    if (statfs(folder.c_str(), &volume) != 0 || volume.f_type != TMPFS_MAGIC) {
        return std::nullopt;
    }
    return ByteCount{volume.f_bavail * static_cast<std::uint64_t>(volume.f_bsize)};
}

} // namespace

void FolderVolume::requireSupport(const RamDiskSpecification& specification) const {
    if (LinuxFormat::of(specification.fileSystem).kind != VolumeKind::tmpfs) {
        throw RamDiskError(RamDiskError::FormattingFailed{
            fmt::format("{} volumes need the right to mount, which this user does not have.",
                        displayName(specification.fileSystem))});
    }
    const auto free = freeBytes(host().sharedMemory);
    if (!free || access(host().sharedMemory.c_str(), W_OK) != 0) {
        throw RamDiskError(RamDiskError::AllocationFailed{
            fmt::format("this user may not mount, and {} is no memory that this user may write to.",
                        host().sharedMemory.string())});
    }
    if (*free < specification.size) {
        throw RamDiskError(
            RamDiskError::AllocationFailed{fmt::format("this user may not mount, and {} has only {} free.",
                                                       host().sharedMemory.string(), format(*free))});
    }
}

fs::path FolderVolume::outerFolder(const DiskRecord& record) const {
    return host().sharedMemory / record.volumeTag();
}

fs::path FolderVolume::innerFolder(const DiskRecord& record) const {
    const auto preferred = preferredMountPoint(record);
    struct stat status {};
    if (lstat(preferred.c_str(), &status) == 0) {
        return preferred;
    }
    // A renaming was cut short: there is only one folder that it can be.
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator(outerFolder(record), ignored)) {
        return entry.path();
    }
    return preferred;
}

fs::path FolderVolume::preferredMountPoint(const DiskRecord& record) const {
    return outerFolder(record) / MountFolders::nameFor(record.name);
}

std::vector<MachineStep> FolderVolume::makingSteps(VolumeRequest& request) const {
    auto& record = request.hold.record;
    const auto outer = outerFolder(record);
    const auto inner = preferredMountPoint(record);
    const bool isPrivate = request.specification.access == VolumeAccess::onlyMe;
    const auto make = [](const fs::path& path, mode_t mode) {
        // chmod, since the user's umask takes bits away from what mkdir is asked for.
        if (mkdir(path.c_str(), 0700) != 0 || chmod(path.c_str(), mode) != 0) {
            throw SystemCallError("make the folder", path);
        }
    };
    // The outer folder stays ours, so that the user for whom root makes the disk can put nothing in place of
    // the inner one; he has to get through it.
    const bool isForAnother = host().owner != geteuid();
    const auto makeInner = [this, inner, isPrivate, make, isForAnother] {
        make(inner, isPrivate ? 0700 : 0755);
        if (isForAnother && lchown(inner.c_str(), host().owner, host().ownerGroup) != 0) {
            throw SystemCallError("hand over", inner);
        }
    };
    return {
        {fmt::format("mkdir {}", outer.string()),
         [=] { make(outer, isPrivate && !isForAnother ? 0700 : 0711); }},
        {fmt::format("mkdir {}", inner.string()), makeInner},
        {fmt::format("setxattr user.{} on it", VolumeMark::attribute),
         [&record, inner] { writeVolumeMark(requireFolder(inner).get(), record.instance); }},
    };
}

bool FolderVolume::isOwnedFolder(const DiskRecord& record) const {
    struct stat status {};
    return lstat(outerFolder(record).c_str(), &status) == 0 && S_ISDIR(status.st_mode)
           && (status.st_uid == record.owner
               || (status.st_uid == 0 && DiskRecordStore(record.folder).isOwn()));
}

bool FolderVolume::isLive(const DiskRecord& record, const MountTable& /*mounts*/) const {
    return isOwnedFolder(record);
}

RamDisk FolderVolume::describe(const DiskRecord& record, const MountTable& /*mounts*/) const {
    auto disk = baseDescription(record);
    disk.fileSystemName = fmt::format("folder on {} (size not enforced)", host().sharedMemory.string());
    disk.fileSystem = record.fileSystem;
    disk.isEncrypted = false;
    disk.mountPoint = innerFolder(record);
    disk.attachment = record.fallbackAttachment();
    const auto used = bytesBelow(*disk.mountPoint);
    const ByteCount left{record.size.bytes - std::min(record.size.bytes, used.bytes)};
    disk.usage = VolumeUsage{record.size, std::min(left, freeBytes(host().sharedMemory).value_or(left))};
    disk.memoryFootprint = used;
    return disk;
}

Detached FolderVolume::detach(RecordHold& hold, const DiskRecordStore& store, Force force) const {
    const auto outer = outerFolder(hold.record);
    if (auto refused = refuseMountBelow(outer, MountTable::read(host().proc))) {
        return std::move(*refused);
    }
    OpenFiles openFiles;
    waitWhile([&] {
        openFiles = OpenFiles::find(host().proc, {FilesPlace::Folder{outer}});
        return !openFiles.users.empty() && force == Force::no;
    });
    if (!openFiles.users.empty() && force == Force::no) {
        return busy(hold.record, openFiles.users);
    }
    // From here on the files go: should this process die half way, the next listing finishes the work.
    hold.record.state = RecordState::detaching;
    hold.record.heldBytes = openFiles.held.value_or(ByteCount{});
    store.update(hold);
    removeRemains(hold.record);
    if (isOwnedFolder(hold.record)) {
        return {Detached::Refused{fmt::format("not all files below “{}” could be deleted.", outer.string())}};
    }
    if (auto held = heldMemory(hold.record, MountTable{})) {
        return {Detached::Held{std::move(*held)}};
    }
    return {Detached::Gone{}};
}

std::optional<ReleaseOutcome> FolderVolume::heldMemory(const DiskRecord& record,
                                                       const MountTable& /*mounts*/) const {
    return outcomeOf(OpenFiles::find(host().proc, {FilesPlace::Folder{outerFolder(record)}}));
}

std::optional<fs::path> FolderVolume::visibleAt(const DiskRecord& record,
                                                const MountTable& /*mounts*/) const {
    // Its files are deleted one by one: once that has begun, it must end.
    if (record.state == RecordState::detaching || !isOwnedFolder(record)) {
        return std::nullopt;
    }
    return innerFolder(record);
}

std::optional<fs::path> FolderVolume::removeRemains(const DiskRecord& record) const {
    // What is mounted below is somebody's, and deleting would not stop at it.
    if (isOwnedFolder(record) && MountTable::read(host().proc).below(outerFolder(record)) == nullptr) {
        std::error_code error;
        fs::remove_all(outerFolder(record), error);
        if (error) {
            if (geteuid() != 0) {
                // Root needs no such rights, and a user could lead him elsewhere meanwhile.
                letOwnerIn(outerFolder(record));
            }
            fs::remove_all(outerFolder(record), error);
        }
    }
    return std::nullopt;
}

} // namespace ramdisk
