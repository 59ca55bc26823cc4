#pragma once

#include "RamDiskCore/Ports/MountedVolumeListing.h"
#include "RamDiskInfrastructure/Linux/Disks/LinuxContext.h"

#include <memory>

namespace ramdisk {

/// The names by which a Linux user knows volumes: the names of the RAM disks, and the folder names of what is
/// mounted where desktops and administrators mount media. System mounts such as /proc have no such name.
class LinuxMountedVolumeListing final : public MountedVolumeListing {
public:
    explicit LinuxMountedVolumeListing(std::shared_ptr<const LinuxContext> context)
        : context_(std::move(context)) {}

    [[nodiscard]] std::set<std::string>
    volumeNames(const std::optional<std::filesystem::path>& excluding) const override;

private:
    std::shared_ptr<const LinuxContext> context_;
};

} // namespace ramdisk
