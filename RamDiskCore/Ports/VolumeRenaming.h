#pragma once

#include "RamDiskCore/Values/RamDisk.h"

#include <string>

namespace ramdisk {

/// Gives a mounted volume another name.
class VolumeRenaming {
public:
    VolumeRenaming() = default;
    VolumeRenaming(const VolumeRenaming&) = delete;
    VolumeRenaming& operator=(const VolumeRenaming&) = delete;
    virtual ~VolumeRenaming() = default;

    /// @throws RamDiskError `formattingFailed`, `notFound`; the volume then keeps its old name.
    virtual void rename(const RamDisk& volume, const std::string& newName) = 0;
};

} // namespace ramdisk
