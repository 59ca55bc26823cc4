#pragma once

#include "RamDiskCore/Ports/FolderRedirecting.h"
#include "tramdisk/CommandContext.h"

#include <optional>
#include <string>

namespace ramdisk::cli {

/// The redirect that is stored for the target, and how it stands.
struct FoundRedirect {
    FolderRedirect redirect;
    RedirectStatus status;
};

/// Absent when the disk has no redirect of the target.
[[nodiscard]] std::optional<FoundRedirect>
findRedirect(const std::string& diskName, const RedirectTarget& target, const CommandContext& context);

/// Notes what to know of a folder that was just redirected. Does nothing if that failed, and for JSON.
void noteRedirect(const std::string& diskName, const RedirectTarget& target, RedirectStart start,
                  const CommandContext& context);

} // namespace ramdisk::cli
