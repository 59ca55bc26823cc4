#pragma once

#include "RamDiskCore/Values/ByteCount.h"
#include "RamDiskCore/Values/DeviceIdentifier.h"
#include "RamDiskCore/Values/FileSystem.h"
#include "RamDiskCore/Values/UUID.h"
#include "RamDiskCore/Values/VolumeAccess.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace ramdisk {

/// How full a volume is.
struct VolumeUsage {
    ByteCount total;
    ByteCount available;

    friend bool operator==(const VolumeUsage&, const VolumeUsage&) = default;
};

/// One attached memory-backed disk, as one listing saw it. The operating system owns the disk. This value is
/// a snapshot that becomes outdated, so nothing keeps it longer than one operation.
struct RamDisk {
    /// The whole device.
    DeviceIdentifier device;
    std::string name;
    /// The size of the device; file systems keep a little of it for themselves.
    ByteCount capacity;
    /// Absent while the volume is not mounted.
    std::optional<std::filesystem::path> mountPoint = std::nullopt;
    /// The format as the system reports it, which may say more than `fileSystem`.
    std::optional<std::string> fileSystemName = std::nullopt;
    /// Absent when the reported format is not one of ours.
    std::optional<FileSystem> fileSystem = std::nullopt;
    std::optional<VolumeUsage> usage = std::nullopt;
    /// Absent when unknown.
    std::optional<bool> isEncrypted = std::nullopt;
    /// How much memory the device really holds now.
    std::optional<ByteCount> memoryFootprint = std::nullopt;
    /// Whether the volume carries this system's mark.
    bool isCreatedByRamDisk = false;
    /// The identifier inside that mark. Each marking makes a new one.
    std::optional<UUID> instance = std::nullopt;
    VolumeAccess access = VolumeAccess::everyone;
    /// Tells this attachment from a later one with the same device name.
    std::optional<std::uint64_t> attachment = std::nullopt;
    /// Every device of the disk, also those that the system lays on top of `device`, such as an APFS
    /// container and its volumes, in the system's order. Empty where there is only `device`.
    std::vector<DeviceIdentifier> devices{};

    /// Whether `wanted` is one of the disk's devices.
    [[nodiscard]] bool has(const DeviceIdentifier& wanted) const {
        return device == wanted || std::find(devices.begin(), devices.end(), wanted) != devices.end();
    }

    friend bool operator==(const RamDisk&, const RamDisk&) = default;
};

} // namespace ramdisk
