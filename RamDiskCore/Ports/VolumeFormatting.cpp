#include "RamDiskCore/Ports/VolumeFormatting.h"

namespace ramdisk {

void VolumeFormatting::requireSupport(const RamDiskSpecification& /*specification*/) const {}

void VolumeFormatting::prepare(const RamDiskSpecification& /*specification*/) {}

std::vector<std::string>
VolumeFormatting::planPreparation(const RamDiskSpecification& /*specification*/) const {
    return {};
}

} // namespace ramdisk
