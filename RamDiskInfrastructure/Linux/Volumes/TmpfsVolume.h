#pragma once

#include "RamDiskInfrastructure/Linux/Mounting/DetachedMount.h"
#include "RamDiskInfrastructure/Linux/Volumes/MountedLinuxVolume.h"

namespace ramdisk {

/// A volume that is a tmpfs of its own. The kernel enforces its size and frees memory as files are deleted.
class TmpfsVolume final : public MountedLinuxVolume {
public:
    explicit TmpfsVolume(LinuxHost host, MountInterface interface = MountInterface::descriptors)
        : MountedLinuxVolume(std::move(host)),
          interface_(interface) {}

    void requireSupport(const RamDiskSpecification& specification) const override;
    [[nodiscard]] std::vector<MachineStep> makingSteps(VolumeRequest& request) const override;
    [[nodiscard]] bool isLive(const DiskRecord& record, const MountTable& mounts) const override;
    [[nodiscard]] std::optional<ReleaseOutcome> heldMemory(const DiskRecord& record,
                                                           const MountTable& mounts) const override;

private:
    [[nodiscard]] bool isOurs(const DiskRecord& record, const MountEntry& entry) const override;
    [[nodiscard]] std::string fileSystemName(const DiskRecord& record) const override;
    [[nodiscard]] MountRequest mountRequest(const DiskRecord& record,
                                            const RamDiskSpecification& specification) const;

    MountInterface interface_;
};

} // namespace ramdisk
