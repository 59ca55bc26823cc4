#pragma once

#include "RamDiskInfrastructure/Redirects/RedirectStep.h"

#include <filesystem>
#include <optional>
#include <string>

namespace ramdisk {

/// Has npm keep its cache on a disk, by one line of the user's .npmrc.
///
/// The file often holds tokens: what replaces it is never readable by anybody who could not read it before.
/// It is replaced as a whole, so npm reads the old one or the new one, and a line that the user changed
/// meanwhile is his.
class NpmCacheRedirector {
public:
    NpmCacheRedirector(std::filesystem::path home, StepObserver observer);

    /// Killed before it recorded anything, it leaves the file as it was, and perhaps a folder on the disk.
    /// Killed after that, it leaves the old file or the new one, perhaps with an unfinished copy beside it:
    /// `undo` is right for both and removes the copy.
    RedirectRestoreState apply(const RedirectDestination& destination,
                               const FolderRedirecting::Record& record) const;
    /// Changes nothing but a line of ours. Killed on the way, it leaves the old file or the new one, and can
    /// be repeated.
    void undo(const std::string& name, const RedirectRestoreState::ConfigLine& former) const;
    [[nodiscard]] bool isInForce(const RedirectDestination& destination) const;

private:
    /// The file that is to be changed, links followed.
    /// @throws std::runtime_error when that is no file, or none of the home folder.
    [[nodiscard]] std::filesystem::path file() const;

    std::filesystem::path home_;
    StepObserver observer_;
};

} // namespace ramdisk
