#pragma once

#include "RamDiskInfrastructure/Redirects/FolderMounting.h"
#include "RamDiskInfrastructure/Redirects/SymlinkFolderRedirector.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <vector>

namespace ramdisk {

/// Mounts a folder of a disk over a folder below the home folder. The original lies hidden under it, so
/// nothing is renamed, tools find a real folder, and a restart of the machine leaves nothing to put back.
class MountedFolderRedirector {
public:
    using Source = SymlinkFolderRedirector::Source;
    using Recorded = SymlinkFolderRedirector::Recorded;

    /// @param mounting null where nothing can be mounted.
    MountedFolderRedirector(std::filesystem::path home, std::vector<std::filesystem::path> reserved,
                            std::shared_ptr<FolderMounting> mounting, StepObserver observer);

    /// Whether the folder can be mounted over: the process may mount, and the folder and the one that it
    /// lies in belong to the owner of the home folder.
    [[nodiscard]] bool suits(const Source& source) const;

    /// Killed at any step, it leaves the original in its place, or hidden under a complete mount.
    /// @throws SystemCallError, which tells whether a link may still do.
    RedirectRestoreState apply(const Source& source, const std::filesystem::path& mountPoint,
                               const FolderRedirecting::Record& record) const;

    /// Takes away the mount, if there is one, as often as the folder was mounted over itself. The folders
    /// that were made for it stay: a link may have needed them as well, and its undoing removes them.
    /// @throws FolderInUse unless forced; std::exception
    void undo(const Source& source, const Recorded& recorded, Force force) const;

    [[nodiscard]] bool isInForce(const Source& source, const std::filesystem::path& mountPoint) const;

    /// Whether the folder is mounted, but something else over it.
    [[nodiscard]] bool isCovered(const Source& source) const;

    /// Whether files are in the mounted folder whose disk is mounted nowhere any more: they go with the
    /// mount.
    [[nodiscard]] bool holdsLastFiles(const Source& source, const Recorded& recorded) const;

    /// All that is mounted below the home folder and comes from a redirect.
    [[nodiscard]] std::vector<FolderMounting::Mounted> mounts() const;

    /// What is mounted in a folder, as `FolderMounting::mountedIn` says it. Where nothing can be mounted,
    /// only other file systems are noticed.
    [[nodiscard]] std::optional<std::string> mountedIn(const std::filesystem::path& folder) const;

    /// Whether what was recorded is of a folder that was mounted.
    [[nodiscard]] static bool isMount(const RedirectRestoreState& state);

private:
    [[nodiscard]] std::optional<FolderMounting::Mounted> mountOf(const Source& source,
                                                                 const Recorded& recorded) const;

    std::filesystem::path home_;
    std::vector<std::filesystem::path> reserved_;
    std::shared_ptr<FolderMounting> mounting_;
    StepObserver observer_;
};

} // namespace ramdisk
