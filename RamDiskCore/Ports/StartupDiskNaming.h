#pragma once

#include "RamDiskCore/Ports/Port.h"

#include <set>
#include <string>

namespace ramdisk {

/// Tells the names of the disks that are made at every launch, whether they are attached now or not.
class StartupDiskNaming : public Port {
public:
    [[nodiscard]] virtual std::set<std::string> startupDiskNames() const = 0;
};

} // namespace ramdisk
