#pragma once

#include "RamDiskCore/Values/RamDisk.h"
#include "RamDiskCore/Values/RamDiskProfile.h"

namespace ramdisk {

/// A mounted disk and the profile of the startup disk that it was made from.
struct KeptDisk {
    RamDisk disk;
    RamDiskProfile profile;

    friend bool operator==(const KeptDisk&, const KeptDisk&) = default;
};

} // namespace ramdisk
