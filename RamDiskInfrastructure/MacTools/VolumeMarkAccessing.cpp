#include "RamDiskInfrastructure/MacTools/VolumeMarkAccessing.h"

namespace ramdisk {

VolumeMark::Reading markReading(const std::optional<std::string>& value) {
    if (!value) {
        return {};
    }
    return {true, UUID::parse(*value)};
}

} // namespace ramdisk
