#pragma once

#include "RamDiskInfrastructure/Redirects/RedirectStep.h"

#include <filesystem>
#include <optional>
#include <string>

namespace ramdisk {

/// Keeps npm's cache on a disk, by one line of the user's .npmrc.
///
/// The file often holds tokens. So its replacement is never readable by anybody who could not read the file
/// before. It is replaced as a whole, so npm reads the old file or the new one. A line that the user changed
/// meanwhile is left alone.
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
    /// The folder of this name, on whatever disk, that a line leads to; absent when none does.
    /// @throws std::exception when that cannot be told.
    [[nodiscard]] std::optional<std::filesystem::path> standing(const std::string& name) const;
    [[nodiscard]] bool isInForce(const RedirectDestination& destination) const;

private:
    /// The file to change, after following links.
    /// @throws std::runtime_error when it is not a file, or not below the home folder.
    [[nodiscard]] std::filesystem::path file() const;

    std::filesystem::path home_;
    StepObserver observer_;
};

} // namespace ramdisk
