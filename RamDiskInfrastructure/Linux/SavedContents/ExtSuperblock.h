#pragma once

#include "RamDiskCore/Values/ByteCount.h"
#include "RamDiskInfrastructure/Commands/FileDescriptor.h"

#include <cstdint>
#include <optional>
#include <string>

namespace ramdisk {

/// What the superblock of an ext4 file system says.
struct ExtSuperblock {
    ByteCount size;
    std::string label;
    /// Whether it was unmounted, with nothing left in its journal.
    bool isClean = false;
    /// Whether its folders may ignore letter case in names.
    bool canFoldCase = false;
    /// Identifies its last mount for writing and its last full check. As long as this text is the same,
    /// nobody has written to the file system.
    std::string seal;

    /// Reads it from the file or the device. Absent when that holds no such file system.
    [[nodiscard]] static std::optional<ExtSuperblock> read(const FileDescriptor& file);
};

} // namespace ramdisk
