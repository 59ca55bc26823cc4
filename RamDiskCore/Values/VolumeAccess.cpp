#include "RamDiskCore/Values/VolumeAccess.h"

namespace ramdisk {

std::string_view rawValue(VolumeAccess access) {
    return access == VolumeAccess::onlyMe ? "onlyMe" : "everyone";
}

std::optional<VolumeAccess> volumeAccessFromRawValue(std::string_view raw) {
    for (const auto access : {VolumeAccess::everyone, VolumeAccess::onlyMe}) {
        if (rawValue(access) == raw) {
            return access;
        }
    }
    return std::nullopt;
}

} // namespace ramdisk
