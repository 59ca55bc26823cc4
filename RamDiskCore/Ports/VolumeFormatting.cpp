#include "RamDiskCore/Ports/VolumeFormatting.h"

namespace ramdisk {

void VolumeFormatting::requireSupport(const RamDiskSpecification& /*specification*/) const {}

} // namespace ramdisk
