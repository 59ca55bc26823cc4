#pragma once

#include "RamDiskCore/Disks/RamDiskServices.h"

#include <functional>
#include <string>

namespace ramdisk {

/// Builds this platform's adapters and the use cases upon them. `notice` is told what the user should know of
/// the way in which this machine makes disks, at most once each time it matters.
/// @throws std::exception when the environment holds what cannot be meant.
[[nodiscard]] RamDiskServices makeRamDiskServices(std::function<void(std::string)> notice);

} // namespace ramdisk
