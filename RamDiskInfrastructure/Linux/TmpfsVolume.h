#pragma once

#include "RamDiskInfrastructure/Linux/DetachedMount.h"
#include "RamDiskInfrastructure/Linux/LinuxVolume.h"

namespace ramdisk {

/// A volume that is a tmpfs of its own: the kernel enforces its size and gives memory back as files go.
class TmpfsVolume final : public LinuxVolume {
public:
    explicit TmpfsVolume(LinuxHost host, MountInterface interface = MountInterface::descriptors)
        : LinuxVolume(std::move(host)), interface_(interface) {}

    void requireSupport(const RamDiskSpecification& specification) const override;
    [[nodiscard]] std::filesystem::path preferredMountPoint(const DiskRecord& record) const override;
    [[nodiscard]] std::vector<MachineStep> makingSteps(VolumeInMaking& making) const override;
    [[nodiscard]] bool isLive(const DiskRecord& record, const MountTable& mounts) const override;
    [[nodiscard]] RamDisk describe(const DiskRecord& record, const MountTable& mounts) const override;
    [[nodiscard]] Detached detach(RecordHold& hold, const DiskRecordStore& store, Force force) const override;
    [[nodiscard]] std::optional<ReleaseOutcome> heldMemory(const DiskRecord& record,
                                                           const MountTable& mounts) const override;
    [[nodiscard]] bool isWholeAndVisible(const DiskRecord& record, const MountTable& mounts) const override;

private:
    [[nodiscard]] MountRequest request(const DiskRecord& record, const RamDiskSpecification& specification) const;

    MountInterface interface_;
};

} // namespace ramdisk
