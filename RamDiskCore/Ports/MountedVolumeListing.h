#pragma once

#include <filesystem>
#include <optional>
#include <set>
#include <string>

namespace ramdisk {

/// Tells the names of the mounted volumes.
class MountedVolumeListing {
public:
    MountedVolumeListing() = default;
    MountedVolumeListing(const MountedVolumeListing&) = delete;
    MountedVolumeListing& operator=(const MountedVolumeListing&) = delete;
    virtual ~MountedVolumeListing() = default;

    /// Every mounted volume's name, without that of the volume mounted at exactly `excluding`. Volumes
    /// without a readable name are left out.
    [[nodiscard]] virtual std::set<std::string>
    volumeNames(const std::optional<std::filesystem::path>& excluding) const = 0;
};

} // namespace ramdisk
