#pragma once

#include "RamDiskCore/Ports/FolderRedirecting.h"
#include "RamDiskInfrastructure/Commands/MachineStep.h"

#include <filesystem>
#include <string>

namespace ramdisk {

/// Where a redirect leads: a folder on a mounted disk.
struct RedirectDestination {
    std::filesystem::path mountPoint;
    /// The name of the folder on the disk.
    std::string name;
};

/// Calls the observer, if there is one, with the step that comes next.
inline void tell(const StepObserver& observer, std::string_view step) {
    if (observer) {
        observer(step);
    }
}

} // namespace ramdisk
