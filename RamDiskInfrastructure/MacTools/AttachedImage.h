#pragma once

#include "RamDiskCore/Values/DeviceIdentifier.h"
#include "RamDiskInfrastructure/Unix/MountedVolume.h"

#include <cstdint>
#include <filesystem>

namespace ramdisk {

/// An image file that this system attached, and where its volume is mounted.
struct AttachedImage {
    std::filesystem::path mountPoint;
    /// The image's own whole disk.
    DeviceIdentifier device;
    MountedVolume volume;
    /// Tells this attachment from a later one with the same device name; zero when the system does not say.
    std::uint64_t attachment = 0;

    friend bool operator==(const AttachedImage&, const AttachedImage&) = default;
};

} // namespace ramdisk
