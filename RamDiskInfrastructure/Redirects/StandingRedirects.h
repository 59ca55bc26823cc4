#pragma once

#include "RamDiskCore/Ports/FolderRedirecting.h"
#include "RamDiskCore/Values/FolderRedirect.h"
#include "RamDiskInfrastructure/Redirects/FolderMounting.h"

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace ramdisk {

/// Redirects of folders as the machine shows them, when the list that tells of them is lost: links into a
/// disk's folder of redirects with the originals beside them, and `mounts` of such folders. A link counts if
/// its folder on the disk has the name that `nameOnDisk` gives to the link's own place, so a link that the
/// user made is left alone. The home folder is searched from the top for a few seconds at most; what the
/// disks at `mountPoints` hold is found however deep it lies.
[[nodiscard]] std::vector<FolderRedirect>
findStandingRedirects(const std::filesystem::path& home, const std::vector<FolderMounting::Mounted>& mounts,
                      const std::vector<std::filesystem::path>& mountPoints, StandingSearch reach,
                      const std::function<std::string(const std::filesystem::path&)>& nameOnDisk);

} // namespace ramdisk
