#pragma once

#include "RamDiskCore/Values/DeviceIdentifier.h"

namespace ramdisk {

/// Makes the block and the raw node of a device readable and writable by their owner only. True when other
/// accounts can open neither of them any more.
[[nodiscard]] bool closeDeviceNodes(const DeviceIdentifier& device);

} // namespace ramdisk
