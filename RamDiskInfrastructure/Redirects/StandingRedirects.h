#pragma once

#include "RamDiskCore/Ports/FolderRedirecting.h"
#include "RamDiskInfrastructure/Redirects/FolderMounting.h"

#include <filesystem>
#include <vector>

namespace ramdisk {

/// Redirects of folders as the machine shows them: links into a disk's folder of redirects with the originals
/// beside them, and `mounts` of such folders, covered ones too. A link counts if its folder on the disk has
/// the name of the link's own place, so a link that the user made is left alone. The home folder is searched
/// from the top for a few seconds at most; what the disks at `mountPoints` hold is found however deep it
/// lies.
[[nodiscard]] std::vector<StandingRedirect>
findStandingRedirects(const std::filesystem::path& home, const std::vector<FolderMounting::Mounted>& mounts,
                      const std::vector<std::filesystem::path>& mountPoints, StandingSearch reach);

} // namespace ramdisk
