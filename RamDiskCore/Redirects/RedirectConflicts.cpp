#include "RamDiskCore/Redirects/RedirectConflicts.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskCore/Values/Text.h"

#include <algorithm>
#include <optional>

namespace ramdisk {

namespace {

/// Absent for what a list from elsewhere may hold: a target that names no folder of the home folder.
std::optional<RedirectPlace> placeIfAny(const FolderRedirecting& redirecting, const RedirectTarget& target) {
    try {
        return redirecting.place(target);
    } catch (const RamDiskError&) {
        traceCaught("redirects", "a stored redirect names no folder that can be moved");
        return std::nullopt;
    }
}

/// Whether `inner` is `outer` or lies in it.
bool isWithin(const std::filesystem::path& inner, const std::filesystem::path& outer) {
    return std::mismatch(outer.begin(), outer.end(), inner.begin(), inner.end()).first == outer.end();
}

/// What the link of the redirect leads to, or what is mounted in its place; empty if it has neither.
std::filesystem::path linkOf(const FolderRedirect& redirect) {
    const auto* const linked =
        redirect.restoreState ? std::get_if<RedirectRestoreState::LinkedFolder>(&redirect.restoreState->value)
                              : nullptr;
    return linked != nullptr ? std::filesystem::path(linked->link) : std::filesystem::path();
}

} // namespace

bool overlap(const FolderRedirecting& redirecting, const RedirectTarget& left, const RedirectTarget& right) {
    const auto one = placeIfAny(redirecting, left);
    const auto other = placeIfAny(redirecting, right);
    if (!one || !other || !one->homeFolder || !other->homeFolder) {
        return left == right;
    }
    return isWithin(*one->homeFolder, *other->homeFolder) || isWithin(*other->homeFolder, *one->homeFolder);
}

bool sameTarget(const FolderRedirecting& redirecting, const RedirectTarget& left,
                const RedirectTarget& right) {
    if (left == right) {
        return true;
    }
    const auto one = placeIfAny(redirecting, left);
    const auto other = placeIfAny(redirecting, right);
    return one && other && one->homeFolder && one->homeFolder == other->homeFolder;
}

bool isMeantBy(const FolderRedirecting& redirecting, const FolderRedirect& redirect,
               const RedirectTarget& target) {
    if (sameTarget(redirecting, redirect.target, target)) {
        return true;
    }
    try {
        return sameTarget(redirecting, redirect.target, redirecting.settled(target));
    } catch (const std::exception&) {
        traceCaught("redirects", "a variable leaves a target without a place");
        return false;
    }
}

bool mayBeInPlace(const FolderRedirect& redirect) {
    return redirect.restoreState || redirect.applying.value_or(false);
}

void requireNoConflict(const FolderRedirecting& redirecting, const FolderRedirect& wanted,
                       const std::vector<FolderRedirect>& list, const std::set<std::string>& startupDisks) {
    const auto isOfStartupDisk = [&](const FolderRedirect& redirect) {
        return std::any_of(startupDisks.begin(), startupDisks.end(),
                           [&](const std::string& name) { return namesEqual(name, redirect.diskName); });
    };
    const auto place = redirecting.place(wanted.target);
    for (const auto& other : list) {
        const bool isOfThisDisk = namesEqual(other.diskName, wanted.diskName);
        if (overlap(redirecting, other.target, wanted.target)
            && (isOfThisDisk || mayBeInPlace(other) || isOfStartupDisk(other))) {
            throw RamDiskError(RamDiskError::RedirectTaken{shownName(place), other.diskName});
        }
        const auto otherPlace = placeIfAny(redirecting, other.target);
        if (isOfThisDisk && otherPlace && namesEqual(otherPlace->nameOnDisk, place.nameOnDisk)) {
            throw RamDiskError(RamDiskError::RedirectNameTaken{otherPlace->nameOnDisk});
        }
    }
}

std::string shownName(const RedirectPlace& place) {
    return place.homeFolder ? place.homeFolder->string() : place.nameOnDisk;
}

std::vector<FolderRedirect> dropWhatGivesWay(const FolderRedirecting& redirecting,
                                             const FolderRedirect& wanted,
                                             std::vector<FolderRedirect>& list) {
    std::vector<FolderRedirect> dropped;
    std::erase_if(list, [&](const FolderRedirect& other) {
        const bool givesWay = !namesEqual(other.diskName, wanted.diskName) && !mayBeInPlace(other)
                              && overlap(redirecting, other.target, wanted.target);
        if (givesWay) {
            dropped.push_back(other);
        }
        return givesWay;
    });
    return dropped;
}

std::vector<StandingRedirect> unlisted(const FolderRedirecting& redirecting,
                                       std::vector<StandingRedirect> standing,
                                       const std::vector<FolderRedirect>& list) {
    std::erase_if(standing, [&](const StandingRedirect& one) {
        const auto name = one.onDisk.filename();
        return redirecting.place(one.redirect.target).nameOnDisk != name
               || std::any_of(list.begin(), list.end(), [&](const FolderRedirect& known) {
                      return mayBeInPlace(known)
                             && (linkOf(known).filename() == name
                                 || overlap(redirecting, known.target, one.redirect.target));
                  });
    });
    return standing;
}

} // namespace ramdisk
