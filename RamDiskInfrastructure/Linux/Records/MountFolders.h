#pragma once

#include "RamDiskCore/Values/VolumeAccess.h"
#include "RamDiskInfrastructure/Commands/FileDescriptor.h"
#include "RamDiskInfrastructure/Linux/Host/LinuxHost.h"

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ramdisk {

/// Makes the folders that volumes are mounted on, and removes them again.
///
/// A folder is used only if this call made it. A folder that exists already, empty or not, belongs to
/// somebody else, and the next name is tried ("Scratch 2"). The exception are our own empty folders that a
/// power cut left on the system disk. An extended attribute identifies them, and they are made again.
///
/// Only root can write to a folder while no volume covers it. So whoever opens a path on a volume that was
/// just ejected gets an error, and does not write to the system disk.
class MountFolders {
public:
    explicit MountFolders(const LinuxHost& host) : host_(host) {}

    /// The folder that `make` tries first.
    [[nodiscard]] std::filesystem::path preferred(std::string_view name, VolumeAccess access) const;

    struct Made {
        std::filesystem::path path;
        /// The open folder. A mount can be attached to it even if somebody exchanges what is at the path.
        FileDescriptor folder;
    };

    /// Makes a folder for a volume called `name`. `announce` gets a free path before the folder is made, so
    /// that a record can be written first. `isTaken` tells whether a record of another disk names the path.
    /// Callers must come one at a time. Otherwise one could take a folder for a leftover that another call
    /// has just made.
    /// @throws SystemCallError with nothing made.
    [[nodiscard]] Made make(std::string_view name, VolumeAccess access,
                            const std::function<void(const std::filesystem::path&)>& announce,
                            const std::function<bool(const std::filesystem::path&)>& isTaken) const;

    /// The folder name for a volume called `name`. It is the same, unless a file cannot have this name.
    [[nodiscard]] static std::string nameFor(std::string_view name);

    enum class Immutable { no, yes };
    /// Keeps everybody, root too, from changing what is in a folder with our mark, or ends that.
    /// @returns whether the folder is now so. It is not where it has no mark, or the file system or the
    /// process
    ///          cannot do it.
    static bool setImmutable(const FileDescriptor& folder, Immutable wanted) noexcept;

    /// Whether the folder has our mark, or lies on a file system where folders have none.
    [[nodiscard]] static bool mayBeOurs(const std::filesystem::path& path) noexcept;

    /// Removes the folder if nothing is mounted there. Contents are never deleted: a folder with our mark in
    /// which root's programs left files gets another name beside it, so that the next volume has its path.
    /// @returns this other name.
    static std::optional<std::filesystem::path> remove(const std::filesystem::path& path) noexcept;

private:
    [[nodiscard]] std::vector<std::filesystem::path> parents(VolumeAccess access) const;
    void makeParent(const std::filesystem::path& parent, VolumeAccess access) const;

    LinuxHost host_;
};

} // namespace ramdisk
