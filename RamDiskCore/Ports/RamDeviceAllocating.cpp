#include "RamDiskCore/Ports/RamDeviceAllocating.h"

namespace ramdisk {

void RamDeviceAllocating::settle(const DeviceIdentifier& /*device*/) {}

} // namespace ramdisk
