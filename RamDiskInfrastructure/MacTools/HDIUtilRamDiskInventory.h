#pragma once

#include "RamDiskCore/Ports/CommandRunning.h"
#include "RamDiskCore/Ports/ProcessFootprintReading.h"
#include "RamDiskCore/Ports/RamDiskInventory.h"
#include "RamDiskInfrastructure/MacTools/AttachedRamImage.h"
#include "RamDiskInfrastructure/MacTools/MediaIdentifying.h"
#include "RamDiskInfrastructure/MacTools/PrivateMounts.h"
#include "RamDiskInfrastructure/MacTools/VolumeMarkAccessing.h"
#include "RamDiskInfrastructure/MacTools/VolumeStatisticsReading.h"

#include <memory>

namespace ramdisk {

/// The RAM disks in the list of macOS's disk-image tool, with what the system knows about their volumes. Each
/// listing runs the tool once. Nothing is kept between listings.
class HDIUtilRamDiskInventory final : public RamDiskInventory {
public:
    struct Ports {
        std::shared_ptr<CommandRunning> runner;
        std::shared_ptr<const VolumeStatisticsReading> statistics;
        std::shared_ptr<const ProcessFootprintReading> footprints;
        std::shared_ptr<const PrivateMounts> privateMounts;
        std::shared_ptr<const VolumeMarkAccessing> marks;
        std::shared_ptr<MediaIdentifying> media;
    };

    explicit HDIUtilRamDiskInventory(Ports ports);

    [[nodiscard]] std::vector<RamDisk> list() override;
    /// The file systems take a composed letter and a decomposed one for the same.
    [[nodiscard]] bool isSamePath(const std::filesystem::path& left,
                                  const std::filesystem::path& right) const override;

private:
    [[nodiscard]] RamDisk ramDisk(const AttachedRamImage& image) const;
    void addVolume(RamDisk& disk, const std::filesystem::path& mountPoint) const;

    Ports ports_;
};

} // namespace ramdisk
