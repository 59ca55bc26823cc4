#include "RamDiskInfrastructure/Linux/Volumes/MountedLinuxVolume.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/Linux/Host/ForeignMounts.h"
#include "RamDiskInfrastructure/Linux/Host/MediaIDs.h"
#include "RamDiskInfrastructure/Linux/Mounting/LoopDevice.h"
#include "RamDiskInfrastructure/Redirects/FolderOnDisk.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <iterator>

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/statfs.h>

namespace ramdisk {

namespace {

/// The folder that a mount covers, immutable while this object lives. An unmount takes the kernel
/// milliseconds, in which root's programs would already write to the folder.
class CoveredFolder {
public:
    explicit CoveredFolder(const std::filesystem::path& mountPoint) {
        // A copy of the mount around it has nothing mounted on it.
        const FileDescriptor around(
            open_tree(AT_FDCWD, mountPoint.parent_path().c_str(), OPEN_TREE_CLONE | OPEN_TREE_CLOEXEC));
        folder_ = around ? openFolder(around.get(), mountPoint.filename().c_str()) : FileDescriptor();
        if (!MountFolders::setImmutable(folder_, MountFolders::Immutable::yes)) {
            traceRefused("mounts", "closing the folder below the mount", "root can write to it for a moment");
            folder_.reset();
        }
    }
    CoveredFolder(const CoveredFolder&) = delete;
    CoveredFolder& operator=(const CoveredFolder&) = delete;
    ~CoveredFolder() {
        const int error = errno;
        static_cast<void>(MountFolders::setImmutable(folder_, MountFolders::Immutable::no));
        errno = error;
    }

private:
    FileDescriptor folder_;
};

} // namespace

std::optional<ByteCount> usedBytes(const std::filesystem::path& mountPoint) {
    struct statfs volume {};
    if (statfs(mountPoint.c_str(), &volume) != 0) {
        return std::nullopt;
    }
    return ByteCount{(volume.f_blocks - volume.f_bfree) * static_cast<std::uint64_t>(volume.f_bsize)};
}

std::filesystem::path MountedLinuxVolume::preferredMountPoint(const DiskRecord& record) const {
    return MountFolders(host()).preferred(record.name, record.access);
}

std::optional<ByteCount> MountedLinuxVolume::deviceSize(const DiskRecord& /*record*/) const {
    return std::nullopt;
}

void MountedLinuxVolume::stopWriters(const std::filesystem::path& /*mountPoint*/) const {}

std::vector<MountEntry> MountedLinuxVolume::mountsOf(const DiskRecord& record,
                                                     const MountTable& mounts) const {
    std::vector<MountEntry> found;
    std::copy_if(mounts.entries().begin(), mounts.entries().end(), std::back_inserter(found),
                 [&](const MountEntry& entry) { return isOurs(record, entry); });
    return found;
}

std::optional<std::filesystem::path> MountedLinuxVolume::visibleAt(const DiskRecord& record,
                                                                   const MountTable& mounts) const {
    const auto isVisible = [&](const std::filesystem::path& path) {
        const auto* top = mounts.topmostAt(path);
        return top != nullptr && isOurs(record, *top);
    };
    if (isVisible(record.mountPoint)) {
        return record.mountPoint;
    }
    // Somebody moved the mount, or was killed while renaming the disk: where its only mount is, it is.
    // An eject that was cut short left it at its place; any other mount only keeps its memory.
    if (record.state == RecordState::detaching) {
        return std::nullopt;
    }
    auto entries = mountsOf(record, mounts);
    // A folder of it that somebody mounted elsewhere, such as a tool's, is not the disk. Only an encrypted
    // one may be a folder itself.
    std::erase_if(entries, [&record](const MountEntry& entry) {
        const std::filesystem::path root(entry.root);
        return record.isEncrypted ? isFolderOnDisk(root, root.filename().string()) : entry.root != "/";
    });
    if (entries.size() == 1 && isVisible(entries.front().mountPoint)) {
        return entries.front().mountPoint;
    }
    return std::nullopt;
}

RamDisk MountedLinuxVolume::describe(const DiskRecord& record, const MountTable& mounts) const {
    auto disk = baseDescription(record);
    disk.fileSystemName = fileSystemName(record);
    disk.fileSystem = record.fileSystem;
    disk.isEncrypted = record.isEncrypted;
    disk.mountPoint = record.mountPoint;
    disk.attachment = record.fallbackAttachment();
    const auto visible = visibleAt(record, mounts);
    if (!visible) {
        return disk;
    }
    disk.mountPoint = visible;
    disk.attachment = MediaIDs::identifierAt(*visible).value_or(*disk.attachment);
    struct statfs volume {};
    if (statfs(visible->c_str(), &volume) == 0) {
        const auto block = static_cast<std::uint64_t>(volume.f_bsize);
        // Without what only a restore may use.
        const auto device = deviceSize(record);
        const auto whole = volume.f_blocks * block;
        const ByteCount used{(volume.f_blocks - volume.f_bfree) * block};
        const ByteCount free{std::min(volume.f_bavail, volume.f_blocks) * block};
        const ByteCount total{device && whole > device->bytes ? used.bytes + free.bytes : whole};
        disk.capacity = device.value_or(total);
        disk.usage = VolumeUsage{total, free};
        disk.memoryFootprint = ByteCount{(volume.f_blocks - volume.f_bfree) * block};
    }
    return disk;
}

Detached MountedLinuxVolume::detach(RecordHold& hold, const DiskRecordStore& store, Force force) const {
    const auto mounts = MountTable::read(host().proc);
    const auto visible = visibleAt(hold.record, mounts);
    if (!visible) {
        return {
            Detached::Refused{fmt::format("“{}” does not show the volume: another one is mounted over it.",
                                          hold.record.mountPoint.string())}};
    }
    if (auto refused = refuseMountBelow(*visible, mounts)) {
        return std::move(*refused);
    }
    hold.record.mountPoint = *visible;
    hold.record.heldDevice = mounts.topmostAt(*visible)->device;
    hold.record.heldBytes = usedBytes(*visible).value_or(ByteCount{});
    std::optional<CoveredFolder> covered(*visible);
    int refusal = 0;
    waitWhile([&] {
        refusal = umount2(visible->c_str(), UMOUNT_NOFOLLOW) == 0 ? 0 : errno;
        return refusal == EBUSY;
    });
    if (refusal != 0) {
        if (refusal != EBUSY) {
            errno = refusal;
            return {Detached::Refused{SystemCallError("unmount", *visible).what()}};
        }
        if (force == Force::no) {
            return busy(hold.record,
                        OpenFiles::find(host().proc, {FilesPlace::Device{hold.record.heldDevice}}).users);
        }
        // The record must know before the volume is out of sight: afterwards little else tells of its memory.
        hold.record.state = RecordState::detaching;
        store.update(hold);
        stopWriters(*visible);
        if (umount2(visible->c_str(), MNT_DETACH | UMOUNT_NOFOLLOW) != 0) {
            const SystemCallError error("unmount", *visible);
            hold.record.state = RecordState::settled;
            store.update(hold);
            return {Detached::Refused{error.what()}};
        }
    }
    // What now looks like the volume is a folder of the system disk. The record still keeps its path from
    // others.
    covered.reset();
    auto movedAside = LinuxVolume::removeRemains(hold.record);
    if (auto held = heldMemory(hold.record, MountTable::read(host().proc))) {
        hold.record.state = RecordState::detaching;
        store.update(hold);
        return {Detached::Held{std::move(*held)}, std::move(movedAside)};
    }
    return {Detached::Gone{}, std::move(movedAside)};
}

std::optional<ReleaseOutcome> MountedLinuxVolume::heldOutOfSight(const DiskRecord& record) const {
    ReleaseOutcome outcome{record.heldBytes, {}};
    if (record.heldDevice != 0) {
        const auto files = OpenFiles::find(host().proc, {FilesPlace::Device{record.heldDevice}});
        outcome.stillHeld = files.users.empty() ? record.heldBytes : files.held.value_or(record.heldBytes);
        outcome.holders = ramdisk::describe(files.users);
        for (const auto& [number, file] : LoopDevices{host().sys}.backingFiles()) {
            const auto backing = LoopDevices::backing(number);
            if (backing && backing->device == record.heldDevice) {
                outcome.holders.push_back(fmt::format(
                    "{} upon its file {}", LoopDevice::pathOf(number).string(), file.filename().string()));
            }
        }
    }
    for (const auto& [entry, viewer] :
         foreignMounts(host().proc, [&](const MountEntry& mount) { return isOurs(record, mount); })) {
        outcome.holders.push_back(fmt::format("a mount at {} that {} ({}) sees", entry.mountPoint.string(),
                                              viewer.name, viewer.processID));
    }
    return outcome.holders.empty() ? std::nullopt : std::optional(std::move(outcome));
}

ReleaseOutcome MountedLinuxVolume::heldByMount(const MountEntry& other, const DiskRecord& record) {
    return {usedBytes(other.mountPoint).value_or(record.heldBytes),
            {fmt::format("a second mount at {}", other.mountPoint.string())}};
}

} // namespace ramdisk
