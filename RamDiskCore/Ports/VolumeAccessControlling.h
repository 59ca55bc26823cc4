#pragma once

#include "RamDiskCore/Ports/Port.h"
#include "RamDiskCore/Values/RamDisk.h"

namespace ramdisk {

/// Changes who may open a mounted volume.
class VolumeAccessControlling : public Port {
public:
    /// The volume moves to where volumes of that access are found, and is never open to more people than
    /// before or afterwards on the way.
    /// @throws std::exception; the volume is then as open as it was, or less.
    virtual void setAccess(const RamDisk& volume, VolumeAccess access) = 0;
};

} // namespace ramdisk
