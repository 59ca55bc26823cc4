#pragma once

#include "RamDiskCore/Values/SystemMemory.h"

#include <set>
#include <string>

namespace ramdisk {

/// What the rules need to know of the machine, as it was at one moment.
struct ValidationContext {
    SystemMemory memory;
    std::set<std::string> mountedVolumeNames;
    std::set<std::string> startupDiskNames;

    friend bool operator==(const ValidationContext&, const ValidationContext&) = default;
};

} // namespace ramdisk
