#pragma once

#include "RamDiskCore/Values/ByteCount.h"
#include "RamDiskInfrastructure/Commands/FileDescriptor.h"

#include <cstdint>
#include <optional>
#include <string>

namespace ramdisk {

/// What the head of an ext4 file system says of it.
struct ExtSuperblock {
    ByteCount size;
    std::string label;
    /// Whether it was unmounted, with nothing left to do in its journal.
    bool isClean = false;
    /// Whether folders of it may take names that differ only in letter case for one another.
    bool canFoldCase = false;
    /// Tells its last mount for writing, and its last full check, from any other: as long as it is the same
    /// text, nobody has written to it.
    std::string seal;

    /// Reads it from the file or the device. Absent when there is no such file system.
    [[nodiscard]] static std::optional<ExtSuperblock> read(const FileDescriptor& file);
};

} // namespace ramdisk
