#pragma once

#include "RamDiskCore/Ports/Port.h"
#include "RamDiskCore/Values/UUID.h"

#include <filesystem>
#include <optional>

namespace ramdisk {

/// Remembers with a disk, for as long as it lives, which folder has the notes of what it keeps. So a command
/// that was started with another home folder does not take it for a disk that keeps nothing.
class KeeperNoting : public Port {
public:
    /// Where it cannot be noted, the disk is known to its own folder only.
    /// @param instance the identifier in the disk's mark.
    virtual void note(const UUID& instance, const std::filesystem::path& folder) noexcept = 0;

    /// A hint: the disk's owner could have written it.
    [[nodiscard]] virtual std::optional<std::filesystem::path> folderOf(const UUID& instance) const = 0;
};

} // namespace ramdisk
