#pragma once

#include "RamDiskCore/Values/ByteCount.h"
#include "RamDiskCore/Values/DeviceIdentifier.h"
#include "RamDiskCore/Values/FileSystem.h"
#include "RamDiskCore/Values/UUID.h"
#include "RamDiskCore/Values/VolumeAccess.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace ramdisk {

/// How full a volume is.
struct VolumeUsage {
    ByteCount total;
    ByteCount available;

    friend bool operator==(const VolumeUsage&, const VolumeUsage&) = default;
};

/// One attached memory-backed disk, as one listing saw it. The operating system owns the disk; this value is
/// a snapshot and grows stale, so nothing keeps it longer than one operation.
struct RamDisk {
    /// The whole device.
    DeviceIdentifier device;
    std::string name;
    /// The size of the device; file systems keep a little of it for themselves.
    ByteCount capacity;
    /// Absent while the volume is not mounted.
    std::optional<std::filesystem::path> mountPoint;
    /// The format as the system reports it, which may be more telling than `fileSystem`.
    std::optional<std::string> fileSystemName;
    /// Absent when the reported format is not one of ours.
    std::optional<FileSystem> fileSystem;
    std::optional<VolumeUsage> usage;
    /// Absent when it is not known.
    std::optional<bool> isEncrypted;
    /// How much memory the device really holds now.
    std::optional<ByteCount> memoryFootprint;
    /// Whether the volume carries this system's mark.
    bool isCreatedByRamDisk = false;
    /// The identifier inside that mark, made afresh whenever a volume is marked.
    std::optional<UUID> instance;
    VolumeAccess access = VolumeAccess::everyone;
    /// Tells this attachment from a later one that was given the same device name.
    std::optional<std::uint64_t> attachment;

    friend bool operator==(const RamDisk&, const RamDisk&) = default;
};

} // namespace ramdisk
