#pragma once

#include "RamDiskInfrastructure/MacTools/VolumeStatisticsReading.h"

namespace ramdisk {

/// Volume statistics from the resource values of the mount point's URL.
class URLVolumeStatistics final : public VolumeStatisticsReading {
public:
    [[nodiscard]] std::optional<VolumeStatistics>
    read(const std::filesystem::path& mountPoint) const override;
};

} // namespace ramdisk
