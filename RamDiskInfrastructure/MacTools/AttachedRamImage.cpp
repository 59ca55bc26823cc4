#include "RamDiskInfrastructure/MacTools/AttachedRamImage.h"

#include <algorithm>
#include <utility>

namespace ramdisk {

namespace {

constexpr std::string_view deviceFolder = "/dev/";

} // namespace

std::vector<DeviceIdentifier> AttachedRamImage::devices() const {
    std::vector<DeviceIdentifier> devices;
    for (const auto& path : devicePaths) {
        if (auto found = deviceAtPath(path)) {
            devices.push_back(std::move(*found));
        }
    }
    return devices;
}

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

bool isWholeDisk(const DeviceIdentifier& device) {
    constexpr std::string_view prefix = "disk";
    return device.bsdName().find('s', prefix.size()) == std::string::npos;
}

std::string pathOfDevice(const DeviceIdentifier& device) {
    return std::string(deviceFolder) + device.bsdName();
}

} // namespace ramdisk
