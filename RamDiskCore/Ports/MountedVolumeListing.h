#pragma once

#include "RamDiskCore/Ports/Port.h"

#include <filesystem>
#include <optional>
#include <set>
#include <string>

namespace ramdisk {

/// Tells the names of the mounted volumes.
class MountedVolumeListing : public Port {
public:
    /// Every mounted volume's name, without that of the volume mounted at exactly `excluding`. Volumes
    /// without a readable name are left out.
    [[nodiscard]] virtual std::set<std::string>
    volumeNames(const std::optional<std::filesystem::path>& excluding) const = 0;
};

} // namespace ramdisk
