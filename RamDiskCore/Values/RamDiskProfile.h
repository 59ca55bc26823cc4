#pragma once

#include "RamDiskCore/Values/ByteCount.h"
#include "RamDiskCore/Values/FileSystem.h"
#include "RamDiskCore/Values/UUID.h"
#include "RamDiskCore/Values/VolumeAccess.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace ramdisk {

/// A startup disk: one that is made at every launch and removed at quit. Its identifier names its saved
/// files, so it never changes, whatever else does.
struct RamDiskProfile {
    UUID id;
    std::string name;
    ByteCount size;
    FileSystem fileSystem = FileSystem::hfsPlus;
    bool isEncrypted = false;
    bool isIndexingEnabled = false;
    VolumeAccess access = VolumeAccess::everyone;
    /// Whether its files are saved and put back from launch to launch.
    bool keepsContents = false;
    /// A folder whose contents are copied onto the new disk.
    std::optional<std::filesystem::path> seedFolder = std::nullopt;
    /// How many saved copies are kept besides the latest.
    std::uint32_t previousCopies = 0;
    /// Folders to make on the disk, relative to its root folder.
    std::vector<std::string> folders{};

    friend bool operator==(const RamDiskProfile&, const RamDiskProfile&) = default;
};

} // namespace ramdisk
