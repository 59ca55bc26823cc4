#pragma once

#include "RamDiskCore/Ports/Port.h"
#include "RamDiskCore/Ports/RamDeviceAllocating.h"
#include "RamDiskInfrastructure/Commands/FileDescriptor.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace ramdisk {

/// Shows a folder in the place of another one, on platforms that can.
class FolderMounting : public Port {
public:
    /// A folder of a disk that is mounted somewhere.
    struct Mounted {
        std::filesystem::path place;
        /// The folder's path on its file system.
        std::filesystem::path root;
        /// The number of that file system, as `stat` shows it.
        dev_t device = 0;
        /// Something else is mounted over it.
        bool isCovered = false;
        /// The disk itself is mounted nowhere any more.
        bool isDiskGone = false;
    };

    /// Whether this process may mount.
    [[nodiscard]] virtual bool isAllowed() const = 0;

    /// Mounts `folder` over `target`, an open folder at `place`. The mount outlives this process.
    /// @throws SystemCallError with nothing mounted.
    virtual void mount(const FileDescriptor& folder, const FileDescriptor& target,
                       const std::filesystem::path& place) = 0;

    /// The mounts that show a folder rather than a whole file system, as this process sees them.
    /// @throws SystemCallError
    [[nodiscard]] virtual std::vector<Mounted> list() const = 0;

    /// Says what is mounted somewhere in the folder, in its subfolders too, and not on it. Absent when
    /// nothing is.
    /// @throws SystemCallError
    [[nodiscard]] virtual std::optional<std::string> mountedIn(const std::filesystem::path& folder) const = 0;

    /// Takes away what is mounted on the folder at `place`, which is looked up by its name in `parent` and no
    /// link followed. Nothing is done if nothing is mounted.
    /// @throws FolderInUse when that is refused; if forced, not because a program uses the folder,
    ///         but when something else is mounted in it.
    virtual void unmount(const FileDescriptor& parent, const std::filesystem::path& place, Force force) = 0;
};

} // namespace ramdisk
