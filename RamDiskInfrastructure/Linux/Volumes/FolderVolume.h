#pragma once

#include "RamDiskInfrastructure/Linux/Volumes/LinuxVolume.h"

namespace ramdisk {

/// A volume that is a folder on /dev/shm, for users who may not mount. It is real memory at full speed, but
/// only the shared limit of /dev/shm bounds its size. The listing says so.
///
/// The folder lies in one whose name contains the disk's identifier and which only this call can have made.
class FolderVolume final : public LinuxVolume {
public:
    using LinuxVolume::LinuxVolume;

    void requireSupport(const RamDiskSpecification& specification) const override;
    [[nodiscard]] std::filesystem::path preferredMountPoint(const DiskRecord& record) const override;
    [[nodiscard]] std::vector<MachineStep> makingSteps(VolumeRequest& request) const override;
    [[nodiscard]] bool isLive(const DiskRecord& record, const MountTable& mounts) const override;
    [[nodiscard]] RamDisk describe(const DiskRecord& record, const MountTable& mounts) const override;
    [[nodiscard]] Detached detach(RecordHold& hold, const DiskRecordStore& store, Force force) const override;
    [[nodiscard]] std::optional<ReleaseOutcome> heldMemory(const DiskRecord& record,
                                                           const MountTable& mounts) const override;
    [[nodiscard]] std::optional<std::filesystem::path> visibleAt(const DiskRecord& record,
                                                                 const MountTable& mounts) const override;
    std::optional<std::filesystem::path> removeRemains(const DiskRecord& record) const override;

private:
    /// The folder around the volume's folder. Its path is made from the identifier alone, never from what a
    /// record says, since its contents are deleted.
    [[nodiscard]] std::filesystem::path outerFolder(const DiskRecord& record) const;
    /// The folder that is the volume.
    [[nodiscard]] std::filesystem::path innerFolder(const DiskRecord& record) const;
    [[nodiscard]] bool isOwnedFolder(const DiskRecord& record) const;
};

} // namespace ramdisk
