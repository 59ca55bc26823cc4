#pragma once

#include "RamDiskCore/Ports/FolderRedirecting.h"
#include "RamDiskCore/Values/FolderRedirect.h"

#include <functional>
#include <set>
#include <string>
#include <vector>

/// Which redirects cannot stand beside each other.
namespace ramdisk {

/// Whether the targets move the same thing, or one of them lies inside the other.
[[nodiscard]] bool overlap(const FolderRedirecting& redirecting, const RedirectTarget& left,
                           const RedirectTarget& right);

/// Whether the targets are the same one, as typed or by another spelling of its path.
[[nodiscard]] bool sameTarget(const FolderRedirecting& redirecting, const RedirectTarget& left,
                              const RedirectTarget& right);

/// Whether something of the redirect may be in place now.
[[nodiscard]] bool mayBeInPlace(const FolderRedirect& redirect);

/// Refuses a new redirect that would get into the way of one in `list`. One that another disk left behind
/// gives way, unless it is in place or its disk comes back at every launch.
/// @throws RamDiskError `redirectTaken`, `redirectNameTaken`, or `invalidSpecification` of the port.
void requireNoConflict(const FolderRedirecting& redirecting, const FolderRedirect& wanted,
                       const std::vector<FolderRedirect>& list, const std::set<std::string>& startupDisks);

/// Removes from `list` what gives way to the new redirect: what overlaps with it on other disks.
void dropWhatGivesWay(const FolderRedirecting& redirecting, const FolderRedirect& wanted,
                      std::vector<FolderRedirect>& list);

} // namespace ramdisk
