#pragma once

#include "RamDiskCore/Ports/MountedVolumeListing.h"

namespace ramdisk {

/// The mounted volumes as Finder knows them.
class FileManagerMountedVolumeListing final : public MountedVolumeListing {
public:
    [[nodiscard]] std::set<std::string>
    volumeNames(const std::optional<std::filesystem::path>& excluding) const override;
};

} // namespace ramdisk
