#pragma once

#include "RamDiskCore/Ports/CommandRunning.h"
#include "RamDiskInfrastructure/MacTools/AttachedRamImage.h"
#include "RamDiskInfrastructure/MacTools/HDIUtilInfoParser.h"

#include <vector>

namespace ramdisk {

/// Everything that is attached now. One run of the disk-image tool, which may take 30 seconds.
/// @throws std::exception
[[nodiscard]] HDIUtilInfoParser::Info attachedImages(CommandRunning& runner);

/// The memory-backed images that are attached now, in the disk-image tool's order. One run of the tool, which
/// may take 30 seconds.
/// @throws RamDiskError `inventoryUnavailable`
[[nodiscard]] std::vector<AttachedRamImage> attachedRamImages(CommandRunning& runner);

} // namespace ramdisk
