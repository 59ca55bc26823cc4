#pragma once

#include "RamDiskCore/Ports/Port.h"
#include "RamDiskCore/Values/DeviceIdentifier.h"
#include "RamDiskCore/Values/RamDiskSpecification.h"
#include "RamDiskCore/Values/VolumeProtection.h"

#include <filesystem>
#include <string>
#include <vector>

namespace ramdisk {

/// Lays a file system on a device and mounts it: marked, and kept private when the request says so.
class VolumeFormatting : public Port {
public:
    /// Refuses what this machine cannot make, before anything is allocated for it.
    /// @throws RamDiskError `formattingFailed` with the reason.
    virtual void requireSupport(const RamDiskSpecification& specification) const;

    /// Readies the machine for the format, such as by loading a driver that stays loaded. Called after
    /// `requireSupport` and before anything is allocated.
    /// @throws RamDiskError `formattingFailed` with the reason.
    virtual void prepare(const RamDiskSpecification& specification);

    /// What `prepare` would do, one step a line.
    [[nodiscard]] virtual std::vector<std::string>
    planPreparation(const RamDiskSpecification& specification) const;

    /// Where the new volume is mounted.
    /// @throws RamDiskError `formattingFailed`, or `invalidSpecification` when another disk took the name
    ///         meanwhile. The device is then still the caller's to release.
    [[nodiscard]] virtual std::filesystem::path format(const DeviceIdentifier& device,
                                                       const RamDiskSpecification& specification,
                                                       const VolumeProtection& protection) = 0;

    /// What `format` would do, one step a line. Never shows a passphrase.
    [[nodiscard]] virtual std::vector<std::string> plan(const RamDiskSpecification& specification) const = 0;
};

} // namespace ramdisk
