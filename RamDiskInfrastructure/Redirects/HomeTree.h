#pragma once

#include "RamDiskInfrastructure/Commands/FileDescriptor.h"

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>

#include <sys/stat.h>

/// Finds folders below the home folder, and never follows a way out of it.
namespace ramdisk {

/// Whether `path` is `folder` or lies in it. Compares the names only; neither path may contain "..".
[[nodiscard]] bool isInside(const std::filesystem::path& path, const std::filesystem::path& folder);

/// What a user typed, as a path below the home folder.
/// @throws RamDiskError `invalidSpecification` for a path that is absolute, leads up, or names the home
/// folder.
[[nodiscard]] std::filesystem::path normalizedHomePath(const std::string& path);

/// Where the folder really lies, relative to the home folder: links above it are followed as long as they
/// stay inside. The folder itself, and a link that leads out, are taken by their names.
[[nodiscard]] std::filesystem::path realPlaceInHome(const std::filesystem::path& home,
                                                    const std::filesystem::path& relative);

/// A folder below the home folder, held open. Whatever is renamed meanwhile, work goes on in the same folder.
struct OpenedFolder {
    FileDescriptor descriptor;
    std::filesystem::path path;
    /// The part of the path that does not exist yet. Empty when the folder itself was opened.
    std::filesystem::path missing;
};

/// A way that leads out of the home folder, where nothing is touched.
class LeadsOutOfHome : public std::runtime_error {
public:
    explicit LeadsOutOfHome(const std::filesystem::path& relative)
        : std::runtime_error("“~/" + relative.string() + "” leads out of the home folder.") {}
};

/// Opens the folder at `relative`, or the deepest folder on the way that exists. Links on the way are
/// followed as long as they stay inside the home folder.
/// @throws SystemCallError; LeadsOutOfHome
[[nodiscard]] OpenedFolder openInHome(const std::filesystem::path& home,
                                      const std::filesystem::path& relative);

/// The first of NAME+ending, "NAME 2"+ending, "NAME 3"+ending ... that does not exist.
/// @throws SystemCallError
[[nodiscard]] std::string freeNameIn(const OpenedFolder& folder, const std::string& name,
                                     const std::string& ending);

/// The status of the item with this name in the folder; links are not followed. Absent when there is none.
/// @throws SystemCallError
[[nodiscard]] std::optional<struct stat> statusIn(const OpenedFolder& folder, const std::string& name);

/// Where the symbolic link of this name leads. Absent when there is none.
[[nodiscard]] std::optional<std::string> linkIn(const OpenedFolder& folder, const std::string& name);

} // namespace ramdisk
