#pragma once

#include "RamDiskCore/Ports/VolumeFormatting.h"
#include "RamDiskCore/Ports/VolumeMarking.h"
#include "RamDiskInfrastructure/Linux/Disks/LinuxContext.h"
#include "RamDiskInfrastructure/Linux/Records/PendingRecords.h"

#include <memory>

namespace ramdisk {

/// Makes the volume of a claimed device: claims its name among all disks, makes the kind of volume that its
/// format needs, and mounts it.
class LinuxVolumeFormatter final : public VolumeFormatting, public VolumeMarking {
public:
    LinuxVolumeFormatter(std::shared_ptr<const LinuxContext> context, std::shared_ptr<PendingRecords> making)
        : context_(std::move(context)),
          pending_(std::move(making)) {}

    void requireSupport(const RamDiskSpecification& specification) const override;
    void prepare(const RamDiskSpecification& specification) override;
    [[nodiscard]] std::vector<std::string>
    planPreparation(const RamDiskSpecification& specification) const override;
    [[nodiscard]] std::filesystem::path format(const DeviceIdentifier& device,
                                               const RamDiskSpecification& specification,
                                               const VolumeProtection& protection) override;
    [[nodiscard]] std::vector<std::string> plan(const RamDiskSpecification& specification) const override;
    void mark(const std::filesystem::path& volume) override;

private:
    [[nodiscard]] VolumeKind firstKind(const RamDiskSpecification& specification) const;
    [[nodiscard]] MachineStep claimNameStep(RecordHold& hold,
                                            const RamDiskSpecification& specification) const;
    void claimName(RecordHold& hold, const RamDiskSpecification& specification) const;
    void make(RecordHold& hold, const RamDiskSpecification& specification,
              const VolumeProtection& protection) const;
    void fallBackToFolder(RecordHold& hold, const RamDiskSpecification& specification) const;

    std::shared_ptr<const LinuxContext> context_;
    std::shared_ptr<PendingRecords> pending_;
};

} // namespace ramdisk
