#pragma once

#include "RamDiskCore/Ports/Port.h"
#include "RamDiskCore/Values/RamDisk.h"

#include <string>

namespace ramdisk {

/// Gives a mounted volume another name.
class VolumeRenaming : public Port {
public:
    /// @throws RamDiskError `formattingFailed`, `notFound`; the volume then keeps its old name.
    virtual void rename(const RamDisk& volume, const std::string& newName) = 0;
};

} // namespace ramdisk
