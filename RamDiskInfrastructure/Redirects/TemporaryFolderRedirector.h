#pragma once

#include "RamDiskInfrastructure/Redirects/SessionEnvironment.h"
#include "RamDiskInfrastructure/Redirects/SettingRedirector.h"

#include <filesystem>
#include <memory>

namespace ramdisk {

/// Gives programs opened from now on a folder on a disk for their temporary files, by TMPDIR.
class TemporaryFolderRedirector final : public SettingRedirector<RedirectRestoreState::EnvironmentVariable> {
public:
    TemporaryFolderRedirector(const std::shared_ptr<SessionEnvironment>& environment,
                              std::filesystem::path home, StepObserver observer);
};

} // namespace ramdisk
