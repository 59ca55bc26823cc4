#include "RamDiskInfrastructure/Linux/TmpfsVolume.h"

#include "RamDiskInfrastructure/Linux/MediaIDs.h"
#include "RamDiskInfrastructure/Linux/SystemCallError.h"
#include "RamDiskInfrastructure/Linux/VolumeMarkLinux.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace ramdisk {

namespace {

/// What the steps of one making hand to each other.
struct Parts {
    MountFolders::Made mountFolder;
    std::optional<DetachedMount> mount;
};

/// For kernels that do not number mounts uniquely: nobody else draws our random identifier.
std::uint64_t attachmentFrom(const UUID& uuid) {
    std::uint64_t number = 0;
    std::memcpy(&number, uuid.bytes().data(), sizeof number);
    return number;
}

std::optional<ByteCount> usedBytes(const std::filesystem::path& mountPoint) {
    struct statfs volume {};
    if (statfs(mountPoint.c_str(), &volume) != 0) {
        return std::nullopt;
    }
    return ByteCount{(volume.f_blocks - volume.f_bfree) * static_cast<std::uint64_t>(volume.f_bsize)};
}

/// The mount that users see at the record's path; null when there is none, or another one lies on top of it.
const MountEntry* visibleMount(const DiskRecord& record, const MountTable& mounts) {
    const auto* entry = mounts.topmostAt(record.mountPoint);
    return entry != nullptr && entry->source == record.volumeTag() ? entry : nullptr;
}

} // namespace

void TmpfsVolume::requireSupport(const RamDiskSpecification& specification) const {
    if (specification.fileSystem != FileSystem::hfsPlus) {
        throw RamDiskError(RamDiskError::FormattingFailed{fmt::format(
            "this version makes no {} volumes on Linux.", displayName(specification.fileSystem))});
    }
}

std::filesystem::path TmpfsVolume::preferredMountPoint(const DiskRecord& record) const {
    return MountFolders(host()).preferred(record.name, record.access);
}

MountRequest TmpfsVolume::request(const DiskRecord& record, const RamDiskSpecification& specification) const {
    const auto pages = record.size.bytes / 4096;
    return {"tmpfs",
            record.volumeTag(),
            {{"size", fmt::format("{}", record.size.bytes)},
             {"mode", specification.access == VolumeAccess::onlyMe ? "0700" : "0755"},
             {"uid", fmt::format("{}", host().owner)},
             {"gid", fmt::format("{}", host().ownerGroup)},
             // Empty files and folders take kernel memory that the size does not count: two for every page is
             // more than real trees have, and keeps a small disk from filling the machine with them.
             {"nr_inodes", fmt::format("{}", 2 * pages + 1024)}}};
}

std::vector<MachineStep> TmpfsVolume::makingSteps(VolumeInMaking& making) const {
    auto parts = std::make_shared<Parts>();
    auto request = this->request(making.hold.record, making.specification);
    const auto describeMount = fmt::format("fsopen {} as {} with {}, nosuid, nodev", request.fileSystem,
                                           request.source, request.optionText());
    auto& record = making.hold.record;
    const auto mountPoint = preferredMountPoint(record).string();
    return {
        {fmt::format("mkdir {}", mountPoint),
         [&making, parts] { parts->mountFolder = making.makeMountFolder(); }},
        {describeMount,
         [parts, request, interface = interface_] { parts->mount.emplace(request, interface); }},
        {fmt::format("setxattr user.{} on its root", VolumeMark::attribute),
         [&record, parts] {
             if (parts->mount->root()) {
                 writeVolumeMark(parts->mount->root().get(), record.instance);
             }
         }},
        {fmt::format("move_mount to {}", mountPoint),
         [&record, parts] {
             parts->mount->attach(parts->mountFolder.path, parts->mountFolder.folder);
             if (!parts->mount->root()) {
                 const FileDescriptor root(
                     open(parts->mountFolder.path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
                 if (!root) {
                     throw SystemCallError("open", parts->mountFolder.path);
                 }
                 writeVolumeMark(root.get(), record.instance);
             }
         }},
    };
}

bool TmpfsVolume::isLive(const DiskRecord& record, const MountTable& mounts) const {
    return std::any_of(mounts.entries().begin(), mounts.entries().end(),
                       [source = record.volumeTag()](const MountEntry& entry) {
                           return entry.source == source && entry.fileSystem == "tmpfs";
                       });
}

RamDisk TmpfsVolume::describe(const DiskRecord& record, const MountTable& mounts) const {
    auto disk = baseDescription(record);
    disk.fileSystemName = "tmpfs";
    disk.fileSystem = record.fileSystem;
    disk.isEncrypted = false;
    disk.mountPoint = record.mountPoint;
    disk.attachment = attachmentFrom(record.uuid);
    if (visibleMount(record, mounts) == nullptr) {
        return disk;
    }
    disk.attachment = MediaIDs::identifierAt(record.mountPoint).value_or(*disk.attachment);
    struct statfs volume {};
    if (statfs(record.mountPoint.c_str(), &volume) == 0) {
        const auto block = static_cast<std::uint64_t>(volume.f_bsize);
        disk.capacity = {volume.f_blocks * block};
        disk.usage = VolumeUsage{disk.capacity, {std::min(volume.f_bavail, volume.f_blocks) * block}};
        disk.memoryFootprint = ByteCount{(volume.f_blocks - volume.f_bfree) * block};
    }
    return disk;
}

Detached TmpfsVolume::detach(RecordHold& hold, const DiskRecordStore& store, Force force) const {
    const auto& path = hold.record.mountPoint;
    const auto mounts = MountTable::read(host().proc);
    const auto* entry = visibleMount(hold.record, mounts);
    if (entry == nullptr) {
        return {Detached::Refused{
            fmt::format("“{}” does not show the volume: another one is mounted over it, or it was moved.",
                        path.string())}};
    }
    if (umount2(path.c_str(), UMOUNT_NOFOLLOW) != 0) {
        if (errno != EBUSY) {
            return {Detached::Refused{SystemCallError("unmount", path).what()}};
        }
        if (force == Force::no) {
            return busy(hold.record, OpenFiles::find(host().proc, {FilesPlace::Device{entry->device}}).users);
        }
        // The record must know before the volume is out of sight: afterwards nothing else tells of its
        // memory.
        hold.record.state = RecordState::detaching;
        hold.record.heldDevice = entry->device;
        hold.record.heldBytes = usedBytes(path).value_or(ByteCount{});
        store.update(hold);
        if (umount2(path.c_str(), MNT_DETACH | UMOUNT_NOFOLLOW) != 0) {
            const SystemCallError error("unmount", path);
            hold.record.state = RecordState::settled;
            store.update(hold);
            return {Detached::Refused{error.what()}};
        }
    } else {
        // What a forced unmount would have had to remember, in case a second mount of the volume stands.
        hold.record.heldDevice = entry->device;
    }
    if (auto held = heldMemory(hold.record, MountTable::read(host().proc))) {
        hold.record.state = RecordState::detaching;
        store.update(hold);
        return {Detached::Held{std::move(*held)}};
    }
    return {Detached::Gone{}};
}

std::optional<ReleaseOutcome> TmpfsVolume::heldMemory(const DiskRecord& record,
                                                      const MountTable& mounts) const {
    if (const auto others = mounts.withSource(record.volumeTag()); !others.empty()) {
        const auto& other = others.front().mountPoint;
        return ReleaseOutcome{usedBytes(other).value_or(record.heldBytes),
                              {fmt::format("a second mount at {}", other.string())}};
    }
    // The kernel gives the number of a file system that is gone to the next one.
    if (record.state != RecordState::detaching || mounts.shows(record.heldDevice)) {
        return std::nullopt;
    }
    return outcomeOf(OpenFiles::find(host().proc, {FilesPlace::Device{record.heldDevice}}));
}

bool TmpfsVolume::isWholeAndVisible(const DiskRecord& record, const MountTable& mounts) const {
    return visibleMount(record, mounts) != nullptr;
}

} // namespace ramdisk
