#pragma once

#include "RamDiskInfrastructure/Archive/SavedContentsArchiver.h"
#include "RamDiskInfrastructure/MacTools/HDIUtilImageTool.h"

#include <memory>
#include <utility>

namespace ramdisk {

/// Saves the files of disks into sparse images, which macOS's own tools make, fill and open. So a saved copy
/// can be opened on any Mac without this system.
class HDIUtilContentArchiver final : public SavedContentsArchiver {
public:
    HDIUtilContentArchiver(HDIUtilImages::Ports ports,
                           std::shared_ptr<const VolumeStatisticsReading> statistics)
        : SavedContentsArchiver(std::make_shared<HDIUtilImageTool>(std::move(ports), std::move(statistics))) {
    }
};

} // namespace ramdisk
