#pragma once

#include <set>
#include <string>

namespace ramdisk {

/// Tells the names of the disks that are made at every launch, whether they are attached now or not.
class StartupDiskNaming {
public:
    StartupDiskNaming() = default;
    StartupDiskNaming(const StartupDiskNaming&) = delete;
    StartupDiskNaming& operator=(const StartupDiskNaming&) = delete;
    virtual ~StartupDiskNaming() = default;

    [[nodiscard]] virtual std::set<std::string> startupDiskNames() const = 0;
};

} // namespace ramdisk
