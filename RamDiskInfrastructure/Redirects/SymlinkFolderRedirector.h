#pragma once

#include "RamDiskCore/Values/UUID.h"
#include "RamDiskInfrastructure/Redirects/HomeTree.h"
#include "RamDiskInfrastructure/Redirects/NameExchange.h"
#include "RamDiskInfrastructure/Redirects/RedirectStep.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace ramdisk {

/// Puts a symbolic link to a folder on a disk in the place of a folder below the home folder, and keeps the
/// original beside it. This takes a few renames, however much the folder holds.
///
/// docs/redirects.md lists the steps and what a crash after each of them leaves.
class SymlinkFolderRedirector {
public:
    /// The folder that a redirect moves.
    struct Source {
        UUID redirect;
        /// Relative to the home folder, normalised.
        std::filesystem::path folder;
        /// The name of the folder on the disk.
        std::string nameOnDisk;

        /// The folder's name in messages.
        [[nodiscard]] std::string shown() const { return "“~/" + folder.string() + "”"; }
    };

    /// What was recorded of it, by `apply`.
    struct Recorded {
        /// Where the original was to be kept; absent when there was none.
        std::optional<std::filesystem::path> backup;
        /// Where the link leads; absent when that was not recorded yet.
        std::optional<std::string> link{};
        std::optional<std::filesystem::path> place{};
        std::optional<std::uint64_t> inode{};
    };

    /// @param reserved folders of this system's own, which must not be moved.
    SymlinkFolderRedirector(std::filesystem::path home, std::vector<std::filesystem::path> reserved,
                            StepObserver observer, NameExchange exchange = NameExchange::whereSupported);

    /// Killed at any step, it leaves what `undo` puts right with what was recorded last; the original is
    /// whole at every moment, in its place or in its backup.
    RedirectRestoreState apply(const Source& source, const std::filesystem::path& mountPoint,
                               const FolderRedirecting::Record& record) const;

    /// Goes by what it finds, first where it was put in place and then where the path leads now. Killed at
    /// any step, it can be repeated with the same record.
    /// @returns what the user should know.
    /// @throws OriginalNotFound when neither the link nor the original is found.
    std::optional<std::string> undo(const Source& source, const Recorded& recorded) const;

    [[nodiscard]] bool isInForce(const Source& source, const std::filesystem::path& mountPoint) const;

private:
    /// A folder in which a redirect may stand, and the folder's name there.
    struct Standing {
        OpenedFolder folder;
        std::filesystem::path relative;
        std::string name;
    };
    [[nodiscard]] std::vector<Standing> standings(const Source& source, const Recorded& recorded,
                                                  std::string& obstacle) const;
    [[nodiscard]] int exchange(const OpenedFolder& folder, const std::string& one,
                               const std::string& other) const;
    void makeLink(const OpenedFolder& folder, const std::string& name,
                  const std::filesystem::path& target) const;

    std::filesystem::path home_;
    std::vector<std::filesystem::path> reserved_;
    StepObserver observer_;
    NameExchange exchange_;
};

} // namespace ramdisk
