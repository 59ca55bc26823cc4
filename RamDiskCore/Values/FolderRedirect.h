#pragma once

#include "RamDiskCore/Values/RedirectRestoreState.h"
#include "RamDiskCore/Values/RedirectTarget.h"
#include "RamDiskCore/Values/UUID.h"

#include <optional>
#include <string>

namespace ramdisk {

/// A tool's folder that lies on a disk while the disk is mounted.
struct FolderRedirect {
    UUID id;
    /// Redirects belong to a disk by its name, so that they outlive it.
    std::string diskName;
    RedirectTarget target{};
    /// Present while the redirect is in force.
    std::optional<RedirectRestoreState> restoreState = std::nullopt;
    /// True while the redirect is being put in place or undone. If it is true at a start, the change was
    /// interrupted.
    std::optional<bool> applying = std::nullopt;

    friend bool operator==(const FolderRedirect&, const FolderRedirect&) = default;
};

} // namespace ramdisk
