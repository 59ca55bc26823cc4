#pragma once

#include "RamDiskCore/Ports/CommandRunning.h"
#include "RamDiskCore/Ports/VolumeUsersListing.h"

#include <filesystem>
#include <memory>

namespace ramdisk {

/// Asks `lsof` if it is installed and the volume is a mount. Otherwise looks through /proc itself.
class LinuxVolumeUsers final : public VolumeUsersListing {
public:
    LinuxVolumeUsers(std::shared_ptr<CommandRunning> runner, std::filesystem::path proc)
        : runner_(std::move(runner)),
          proc_(std::move(proc)) {}

    [[nodiscard]] std::vector<VolumeUser> users(const std::filesystem::path& mountPoint) override;

private:
    std::shared_ptr<CommandRunning> runner_;
    std::filesystem::path proc_;
};

} // namespace ramdisk
