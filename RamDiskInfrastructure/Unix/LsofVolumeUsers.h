#pragma once

#include "RamDiskCore/Ports/CommandRunning.h"
#include "RamDiskCore/Ports/VolumeUsersListing.h"

#include <filesystem>
#include <memory>
#include <string_view>

namespace ramdisk {

/// Asks `lsof` who has files open on a volume.
class LsofVolumeUsers final : public VolumeUsersListing {
public:
    /// `lsof` is the tool's path, which differs between platforms.
    LsofVolumeUsers(std::shared_ptr<CommandRunning> runner, std::filesystem::path lsof);

    /// Waits at most 30 seconds.
    /// @throws CommandFailure, CommandTimeout, or std::system_error when the tool cannot be started.
    [[nodiscard]] std::vector<VolumeUser> users(const std::filesystem::path& mountPoint) override;

private:
    std::shared_ptr<CommandRunning> runner_;
    std::filesystem::path lsof_;
};

/// The processes in what `lsof -F pc` prints.
[[nodiscard]] std::vector<VolumeUser> parseLsofFields(std::string_view text);

} // namespace ramdisk
