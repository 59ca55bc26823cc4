#pragma once

#include "RamDiskCore/Values/RamDisk.h"
#include "RamDiskCore/Values/RamDiskProfile.h"
#include "RamDiskCore/Values/RamDiskSpecification.h"

namespace ramdisk {

/// A mounted disk and the profile of the startup disk that it was made from.
struct KeptDisk {
    RamDisk disk;
    RamDiskProfile profile;

    friend bool operator==(const KeptDisk&, const KeptDisk&) = default;
};

/// What a startup disk is made of.
[[nodiscard]] inline RamDiskSpecification specificationOf(const RamDiskProfile& profile) {
    return {profile.name,        profile.size,  profile.fileSystem, profile.isIndexingEnabled,
            profile.isEncrypted, profile.access};
}

} // namespace ramdisk
