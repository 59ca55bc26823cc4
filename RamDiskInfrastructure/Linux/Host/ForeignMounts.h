#pragma once

#include "RamDiskCore/Ports/VolumeUsersListing.h"
#include "RamDiskInfrastructure/Linux/Host/MountTable.h"

#include <filesystem>
#include <functional>
#include <vector>

namespace ramdisk {

/// A mount that this process cannot reach, since only processes of another mount namespace have it.
struct ForeignMount {
    MountEntry entry;
    /// One of those processes.
    VolumeUser viewer;
};

/// The wanted mounts of all namespaces but that of this process. Those are left out in which no process is
/// that the caller may look into.
[[nodiscard]] std::vector<ForeignMount> foreignMounts(const std::filesystem::path& proc,
                                                      const std::function<bool(const MountEntry&)>& isWanted);

} // namespace ramdisk
