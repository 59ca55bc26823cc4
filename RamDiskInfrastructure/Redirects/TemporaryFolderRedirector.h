#pragma once

#include "RamDiskInfrastructure/Redirects/RedirectStep.h"
#include "RamDiskInfrastructure/Redirects/SessionEnvironment.h"

#include <filesystem>
#include <memory>

namespace ramdisk {

/// Gives programs opened from now on a folder on a disk for their temporary files, by TMPDIR.
class TemporaryFolderRedirector {
public:
    TemporaryFolderRedirector(std::shared_ptr<SessionEnvironment> environment, std::filesystem::path home,
                              StepObserver observer);

    RedirectRestoreState apply(const RedirectDestination& destination,
                               const FolderRedirecting::Record& record) const;
    void undo(const std::string& name, const RedirectRestoreState::EnvironmentVariable& former) const;
    [[nodiscard]] bool isInForce(const RedirectDestination& destination) const;

private:
    std::shared_ptr<SessionEnvironment> environment_;
    std::filesystem::path home_;
    StepObserver observer_;
};

} // namespace ramdisk
