#pragma once

#include "RamDiskCore/Values/ByteCount.h"
#include "RamDiskCore/Values/FileSystem.h"
#include "RamDiskCore/Values/VolumeAccess.h"

#include <string>
#include <string_view>

namespace ramdisk {

/// What a user asks for when a disk is created. A default-constructed value is the disk of a user who gave no
/// options.
struct RamDiskSpecification {
    static constexpr std::string_view defaultName = "RAMDisk";

    std::string name{defaultName};
    ByteCount size = ByteCount::of(1, ByteCount::Unit::gibibyte);
    FileSystem fileSystem = FileSystem::hfsPlus;
    /// Whether the desktop's search index keeps reading the volume.
    bool isIndexingEnabled = false;
    bool isEncrypted = false;
    VolumeAccess access = VolumeAccess::everyone;
    /// Whether the file system gets room beyond the size, which nobody but a restore may use.
    bool hasRestoreRoom = false;

    friend bool operator==(const RamDiskSpecification&, const RamDiskSpecification&) = default;
};

} // namespace ramdisk
