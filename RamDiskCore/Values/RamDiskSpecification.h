#pragma once

#include "RamDiskCore/Values/ByteCount.h"
#include "RamDiskCore/Values/FileSystem.h"
#include "RamDiskCore/Values/VolumeAccess.h"

#include <string>
#include <string_view>

namespace ramdisk {

/// What is asked for when a disk is created. A value made without arguments is the disk that a user gets who
/// asks for nothing in particular.
struct RamDiskSpecification {
    static constexpr std::string_view defaultName = "RAMDisk";

    std::string name{defaultName};
    ByteCount size = ByteCount::of(1, ByteCount::Unit::gibibyte);
    FileSystem fileSystem = FileSystem::hfsPlus;
    /// Whether the desktop's search index keeps reading the volume.
    bool isIndexingEnabled = false;
    bool isEncrypted = false;
    VolumeAccess access = VolumeAccess::everyone;

    friend bool operator==(const RamDiskSpecification&, const RamDiskSpecification&) = default;
};

} // namespace ramdisk
