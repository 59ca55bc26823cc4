#pragma once

#include "RamDiskCore/Values/VolumeAccess.h"
#include "RamDiskInfrastructure/Commands/FileDescriptor.h"
#include "RamDiskInfrastructure/Linux/Host/LinuxHost.h"

#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace ramdisk {

/// Makes the folders that volumes are mounted on, and removes them again.
///
/// A folder is only ever used when this call made it: one that stands in the way, empty or not, is somebody
/// else's, and the next name is tried ("Scratch 2"). The exception are our own empty folders that a power cut
/// left behind on the system disk; an extended attribute tells them, and they are made anew.
class MountFolders {
public:
    explicit MountFolders(const LinuxHost& host) : host_(host) {}

    /// The folder that `make` tries first.
    [[nodiscard]] std::filesystem::path preferred(std::string_view name, VolumeAccess access) const;

    struct Made {
        std::filesystem::path path;
        /// The folder itself, which a mount can be attached to even if somebody swaps what is at the path.
        FileDescriptor folder;
    };

    /// Makes a folder for a volume called `name`. `announce` hears of a path that is free before it is made,
    /// so that a record can be written first; `isTaken` tells whether a record of another disk names the
    /// path. Callers come one at a time, so that nobody takes a folder for a leftover that another call has
    /// just made.
    /// @throws SystemCallError with nothing made.
    [[nodiscard]] Made make(std::string_view name, VolumeAccess access,
                            const std::function<void(const std::filesystem::path&)>& announce,
                            const std::function<bool(const std::filesystem::path&)>& isTaken) const;

    /// The name of a folder for a volume called `name`: the same where a file may be called so.
    [[nodiscard]] static std::string nameFor(std::string_view name);

    /// Whether the folder carries our mark, or lies where folders carry none.
    [[nodiscard]] static bool mayBeOurs(const std::filesystem::path& path) noexcept;

    /// Removes the folder if it is empty and nothing is mounted there; contents are never deleted.
    static void remove(const std::filesystem::path& path) noexcept;

private:
    [[nodiscard]] std::vector<std::filesystem::path> parents(VolumeAccess access) const;
    void makeParent(const std::filesystem::path& parent, VolumeAccess access) const;

    LinuxHost host_;
};

} // namespace ramdisk
