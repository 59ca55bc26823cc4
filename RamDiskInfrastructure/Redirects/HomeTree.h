#pragma once

#include "RamDiskInfrastructure/Commands/FileDescriptor.h"

#include <filesystem>
#include <optional>
#include <string>

#include <sys/stat.h>

/// Looking for a folder of the home folder without being led out of it.
namespace ramdisk {

/// Whether `path` is `folder` or lies in it. Goes by the names; both have no "..".
[[nodiscard]] bool isInside(const std::filesystem::path& path, const std::filesystem::path& folder);

/// The path below the home folder that a user means.
/// @throws RamDiskError `invalidSpecification` for a path that is absolute, leads up, or names the home
/// folder.
[[nodiscard]] std::filesystem::path normalizedHomePath(const std::string& path);

/// A folder of the home folder, held open: whatever is renamed meanwhile, work in it stays in it.
struct OpenedFolder {
    FileDescriptor descriptor;
    std::filesystem::path path;
    /// What of the way there is not yet; empty when the folder itself was opened.
    std::filesystem::path missing;
};

/// Opens the folder at `relative`, or as much of the way as there is. Links on the way are followed as long
/// as they stay inside the home folder.
/// @throws SystemCallError; std::runtime_error when the way leads out of the home folder.
[[nodiscard]] OpenedFolder openInHome(const std::filesystem::path& home,
                                      const std::filesystem::path& relative);

/// The first of NAME+ending, "NAME 2"+ending, "NAME 3"+ending ... that nothing has.
/// @throws SystemCallError
[[nodiscard]] std::string freeNameIn(const OpenedFolder& folder, const std::string& name,
                                     const std::string& ending);

/// What has the name in the folder, links not followed; absent when nothing has.
/// @throws SystemCallError
[[nodiscard]] std::optional<struct stat> statusIn(const OpenedFolder& folder, const std::string& name);

/// What the symbolic link of this name says; absent when there is none.
[[nodiscard]] std::optional<std::string> linkIn(const OpenedFolder& folder, const std::string& name);

} // namespace ramdisk
