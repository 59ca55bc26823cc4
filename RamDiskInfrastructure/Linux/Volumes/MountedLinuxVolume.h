#pragma once

#include "RamDiskInfrastructure/Linux/Volumes/LinuxVolume.h"

namespace ramdisk {

/// A volume that is a mount: what is the same for a tmpfs and for a file system on a loop device.
class MountedLinuxVolume : public LinuxVolume {
public:
    using LinuxVolume::LinuxVolume;

    [[nodiscard]] std::filesystem::path preferredMountPoint(const DiskRecord& record) const override;
    [[nodiscard]] RamDisk describe(const DiskRecord& record, const MountTable& mounts) const override;
    [[nodiscard]] Detached detach(RecordHold& hold, const DiskRecordStore& store, Force force) const override;
    [[nodiscard]] std::optional<std::filesystem::path> visibleAt(const DiskRecord& record,
                                                                 const MountTable& mounts) const override;

protected:
    /// Whether the entry is a mount of this record's volume. Decided by what only its maker can have put
    /// there.
    [[nodiscard]] virtual bool isOurs(const DiskRecord& record, const MountEntry& entry) const = 0;

    /// The format as a listing shows it.
    [[nodiscard]] virtual std::string fileSystemName(const DiskRecord& record) const = 0;

    /// The size of the device below the file system, where it says more than the file system's own size.
    [[nodiscard]] virtual std::optional<ByteCount> deviceSize(const DiskRecord& record) const;

    /// Called before a volume in use is taken out of sight. Nothing may be written to it any more afterwards.
    virtual void stopWriters(const std::filesystem::path& mountPoint) const;

    /// All mounts of the volume.
    [[nodiscard]] std::vector<MountEntry> mountsOf(const DiskRecord& record, const MountTable& mounts) const;

    /// What keeps the memory of a volume that has no mount in sight: open files, mounts in other namespaces,
    /// and loop devices upon its files. Absent when nothing does. Without a `heldDevice` in the record, only
    /// mounts are found.
    [[nodiscard]] std::optional<ReleaseOutcome> heldOutOfSight(const DiskRecord& record) const;

    /// Memory that a second mount of a volume keeps after the first one is gone.
    [[nodiscard]] static ReleaseOutcome heldByMount(const MountEntry& other, const DiskRecord& record);
};

/// How many bytes are used in the file system that is mounted there. Absent when it cannot be asked.
[[nodiscard]] std::optional<ByteCount> usedBytes(const std::filesystem::path& mountPoint);

} // namespace ramdisk
