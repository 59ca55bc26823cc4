#pragma once

#include "RamDiskCore/Ports/FolderRedirecting.h"
#include "RamDiskCore/Values/FolderRedirect.h"

#include <functional>
#include <set>
#include <string>
#include <vector>

/// Which redirects exclude each other.
namespace ramdisk {

/// Whether the targets move the same thing, or one of them lies inside the other.
[[nodiscard]] bool overlap(const FolderRedirecting& redirecting, const RedirectTarget& left,
                           const RedirectTarget& right);

/// Whether the two targets are the same, perhaps with different spellings of the path.
[[nodiscard]] bool sameTarget(const FolderRedirecting& redirecting, const RedirectTarget& left,
                              const RedirectTarget& right);

/// Whether the redirect is what the target means: where its tool keeps its files now, or where it did.
[[nodiscard]] bool isMeantBy(const FolderRedirecting& redirecting, const FolderRedirect& redirect,
                             const RedirectTarget& target);

/// Whether something of the redirect may be in place now.
[[nodiscard]] bool mayBeInPlace(const FolderRedirect& redirect);

/// Refuses a new redirect that conflicts with one in `list`. A redirect that another disk left is no
/// conflict, unless it is in place or its disk comes back at every launch.
/// @throws RamDiskError `redirectTaken`, `redirectNameTaken`, or `invalidSpecification` of the port.
void requireNoConflict(const FolderRedirecting& redirecting, const FolderRedirect& wanted,
                       const std::vector<FolderRedirect>& list, const std::set<std::string>& startupDisks);

/// How a user knows what a redirect moves.
[[nodiscard]] std::string shownName(const RedirectPlace& place);

/// Removes from `list` the redirects of other disks that overlap with the new one, and returns them.
std::vector<FolderRedirect> dropWhatGivesWay(const FolderRedirecting& redirecting,
                                             const FolderRedirect& wanted, std::vector<FolderRedirect>& list);

/// Those of `standing` that the list does not tell of, because it was lost, edited, or written by another
/// version.
[[nodiscard]] std::vector<StandingRedirect> unlisted(const FolderRedirecting& redirecting,
                                                     std::vector<StandingRedirect> standing,
                                                     const std::vector<FolderRedirect>& list);

} // namespace ramdisk
