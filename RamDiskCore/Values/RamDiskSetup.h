#pragma once

#include "RamDiskCore/Values/RamDiskSpecification.h"
#include "RamDiskCore/Values/RedirectTarget.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace ramdisk {

/// A disk to make, and everything that a user can ask for around it.
struct RamDiskSetup {
    RamDiskSpecification specification{};
    /// Whether the disk becomes a startup disk.
    bool createsAtLaunch = false;
    /// Whether its files are saved and put back from launch to launch.
    bool keepsFiles = false;
    /// A folder whose contents are copied onto the new disk.
    std::optional<std::filesystem::path> seedFolder = std::nullopt;
    /// The tools' folders to keep on the disk.
    std::vector<RedirectTarget> redirects{};
    /// Folders to make on the disk, relative to its root folder.
    std::vector<std::string> folders{};

    friend bool operator==(const RamDiskSetup&, const RamDiskSetup&) = default;
};

} // namespace ramdisk
