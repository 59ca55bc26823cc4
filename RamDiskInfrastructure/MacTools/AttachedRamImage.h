#pragma once

#include "RamDiskCore/Values/ByteCount.h"
#include "RamDiskCore/Values/DeviceIdentifier.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace ramdisk {

/// One attached image in memory, as the disk-image tool lists it. Its volume may have another disk number
/// than the image itself: APFS puts it on a disk of its own.
struct AttachedRamImage {
    /// The image's own whole disk.
    DeviceIdentifier device;
    ByteCount capacity;
    /// Absent while no volume of the image is mounted.
    std::optional<std::filesystem::path> mountPoint;
    /// The process whose memory is the disk.
    std::optional<std::int32_t> helperProcessID;
    /// Every device of the image, such as /dev/disk5 and /dev/disk9s1, in the tool's order.
    std::vector<std::string> devicePaths;
    /// The device that carries the volume of `mountPoint`.
    std::optional<std::string> volumeDevicePath;

    /// The devices of `devicePaths`.
    [[nodiscard]] std::vector<DeviceIdentifier> devices() const;

    /// Whether `wanted` is one of the image's devices.
    [[nodiscard]] bool has(const DeviceIdentifier& wanted) const;

    friend bool operator==(const AttachedRamImage&, const AttachedRamImage&) = default;
};

/// The device that a path such as /dev/disk5 names. Absent for any other text.
[[nodiscard]] std::optional<DeviceIdentifier> deviceAtPath(std::string_view path);

/// Whether a device is a whole disk and no slice of one.
[[nodiscard]] bool isWholeDisk(const DeviceIdentifier& device);

/// "/dev/" and the device's name.
[[nodiscard]] std::string pathOfDevice(const DeviceIdentifier& device);

} // namespace ramdisk
