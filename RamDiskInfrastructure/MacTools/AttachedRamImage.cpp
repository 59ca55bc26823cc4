#include "RamDiskInfrastructure/MacTools/AttachedRamImage.h"

#include <algorithm>

namespace ramdisk {

namespace {

constexpr std::string_view deviceFolder = "/dev/";

} // namespace

bool AttachedRamImage::has(const DeviceIdentifier& wanted) const {
    return device == wanted
           || std::find(devicePaths.begin(), devicePaths.end(), pathOfDevice(wanted)) != devicePaths.end();
}

std::optional<DeviceIdentifier> deviceAtPath(std::string_view path) {
    if (path.substr(0, deviceFolder.size()) == deviceFolder) {
        path.remove_prefix(deviceFolder.size());
    }
    return DeviceIdentifier::make(path);
}

std::string pathOfDevice(const DeviceIdentifier& device) {
    return std::string(deviceFolder) + device.bsdName();
}

} // namespace ramdisk
