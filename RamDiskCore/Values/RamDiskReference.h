#pragma once

#include "RamDiskCore/Values/DeviceIdentifier.h"

#include <filesystem>
#include <string>
#include <string_view>
#include <variant>

namespace ramdisk {

/// How a user or a script names a disk.
struct RamDiskReference {
    struct Device {
        DeviceIdentifier device;
        friend bool operator==(const Device&, const Device&) = default;
    };
    struct MountPoint {
        std::filesystem::path path;
        friend bool operator==(const MountPoint&, const MountPoint&) = default;
    };
    struct Name {
        std::string name;
        friend bool operator==(const Name&, const Name&) = default;
    };

    std::variant<Device, MountPoint, Name> value;

    /// Reads what a user typed: disk5 and /dev/disk5 are devices; anything else with a "/", "." and ".." are
    /// mount points, as they were typed; the rest is a name.
    [[nodiscard]] static RamDiskReference parse(std::string_view text);

    /// The reference as messages show it.
    [[nodiscard]] std::string text() const;

    friend bool operator==(const RamDiskReference&, const RamDiskReference&) = default;
};

} // namespace ramdisk
