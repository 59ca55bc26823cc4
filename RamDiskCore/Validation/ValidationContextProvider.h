#pragma once

#include "RamDiskCore/Ports/MountedVolumeListing.h"
#include "RamDiskCore/Ports/StartupDiskNaming.h"
#include "RamDiskCore/Ports/SystemMemoryProviding.h"
#include "RamDiskCore/Validation/ValidationContext.h"
#include "RamDiskCore/Values/RamDisk.h"

#include <filesystem>
#include <memory>
#include <optional>

namespace ramdisk {

/// Collects a new `ValidationContext` for each validation. Costs what its ports cost.
struct ValidationContextProvider {
    std::shared_ptr<const SystemMemoryProviding> memory;
    std::shared_ptr<const MountedVolumeListing> volumes;
    /// Null where no startup disks are kept.
    std::shared_ptr<const StartupDiskNaming> profiles;

    /// The machine as it is now. The volume mounted at `excluding` is left out, so that a disk that is being
    /// changed does not collide with its own name.
    [[nodiscard]] ValidationContext
    current(const std::optional<std::filesystem::path>& excluding = std::nullopt) const;

    /// The machine as it is now for changes to `disk`: neither its volume nor its own record as a startup
    /// disk counts.
    [[nodiscard]] ValidationContext currentFor(const RamDisk& disk) const;
};

} // namespace ramdisk
