#include "RamDiskCore/Redirects/RedirectWork.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskCore/Redirects/RedirectConflicts.h"
#include "RamDiskCore/Values/Text.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace ramdisk {

namespace {

using Outcome = RedirectSession::Outcome;
using FilesOnDisk = FolderRedirectsUseCase::FilesOnDisk;

/// Undoes one redirect for good, and saves its files from the disk if that is wanted.
Outcome forgetOne(RedirectSession& session, FolderRedirect& redirect,
                  const std::optional<std::filesystem::path>& mountPoint, FilesOnDisk files) {
    if (files == FilesOnDisk::putBack && !mountPoint) {
        session.fail(redirect, std::runtime_error("“" + redirect.diskName
                                                  + "” is not mounted, so there are no files to keep."));
        return Outcome::failed;
    }
    if (files == FilesOnDisk::guarded && mountPoint
        && session.redirecting().holdsOwnFiles(redirect, *mountPoint)) {
        session.fail(redirect,
                     std::runtime_error("“" + shownName(session.redirecting().place(redirect.target))
                                        + "” has files on “" + redirect.diskName
                                        + "” that are nowhere else, so it stays there. `tramdisk redirects "
                                          "remove` with --keep-files puts them in the folder’s place, and "
                                          "with --discard deletes them."));
        return Outcome::failed;
    }
    try {
        if (mountPoint) {
            session.redirecting().requireNothingMountedIn(redirect, *mountPoint);
        }
    } catch (const std::exception& error) {
        session.fail(redirect, error);
        return Outcome::failed;
    }
    if (files == FilesOnDisk::discarded
        && !(mountPoint && session.redirecting().isInForce(redirect, *mountPoint))) {
        // Of a disk that is gone: these are its last files.
        session.useForce();
    }
    const auto asRecorded = redirect;
    if (session.undo(redirect) == Outcome::failed) {
        return Outcome::failed;
    }
    if (files == FilesOnDisk::putBack
        && session.bringFiles(redirect, asRecorded, *mountPoint) == Outcome::failed) {
        if (mayBeInPlace(asRecorded) && !mayBeInPlace(redirect)) {
            session.apply(redirect, *mountPoint);
        }
        return Outcome::failed;
    }
    return Outcome::done;
}

bool isConflict(RedirectSession& session, const FolderRedirect& wanted, RedirectRepository::List others,
                const std::set<std::string>& startupDisks) {
    std::erase_if(others, [&](const FolderRedirect& other) { return other.id == wanted.id; });
    try {
        requireNoConflict(session.redirecting(), wanted, others, startupDisks);
        return false;
    } catch (const RamDiskError& error) {
        session.fail(wanted, error);
        return true;
    }
}

} // namespace

std::function<bool(const FolderRedirect&)> isOf(const std::string& diskName) {
    return [diskName](const FolderRedirect& redirect) { return namesEqual(redirect.diskName, diskName); };
}

std::function<bool(const FolderRedirect&)> isOneOf(const FolderRedirecting& redirecting,
                                                   const std::vector<RedirectTarget>& targets) {
    return [&redirecting, &targets](const FolderRedirect& redirect) {
        return std::any_of(targets.begin(), targets.end(), [&](const RedirectTarget& target) {
            return isMeantBy(redirecting, redirect, target);
        });
    };
}

void forgetAll(RedirectSession& session, const std::optional<std::filesystem::path>& mountPoint,
               FilesOnDisk files, const std::function<bool(const FolderRedirect&)>& which) {
    std::vector<FolderRedirect> gone;
    for (auto* const redirect : session.inReverse(which)) {
        const auto asRecorded = *redirect;
        if (forgetOne(session, *redirect, mountPoint, files) == Outcome::done) {
            gone.push_back(asRecorded);
        }
    }
    for (const auto& redirect : gone) {
        if (mountPoint) {
            session.free(redirect, *mountPoint);
        }
    }
    // Last, so that a process that is killed before can be followed by another that frees the rest.
    if (std::erase_if(session.list(),
                      [&](const FolderRedirect& redirect) {
                          return std::any_of(gone.begin(), gone.end(), [&](const FolderRedirect& other) {
                              return other.id == redirect.id;
                          });
                      })
        != 0) {
        session.store();
    }
}

RedirectSession::Outcome applyStored(RedirectSession& session, FolderRedirect& redirect,
                                     const std::filesystem::path& mountPoint, const RedirectTarget& target) {
    if (redirect.restoreState && !redirect.applying.value_or(false)
        && sameTarget(session.redirecting(), redirect.target, target)
        && session.redirecting().isInForce(redirect, mountPoint)) {
        return Outcome::done;
    }
    if (mayBeInPlace(redirect)) {
        trace("redirects", "undoing what stands of a redirect of {} before it is made anew",
              redirect.diskName);
    }
    auto wanted = redirect;
    wanted.target = target;
    if (session.undo(redirect) == Outcome::failed || session.settle(wanted) == Outcome::failed) {
        return Outcome::failed;
    }
    for (const auto* const other : session.where(mayBeInPlace)) {
        if (overlap(session.redirecting(), other->target, wanted.target)) {
            session.fail(redirect,
                         RamDiskError(RamDiskError::RedirectTaken{
                             session.redirecting().place(wanted.target).nameOnDisk, other->diskName}));
            return Outcome::failed;
        }
    }
    if (session.follow(redirect, wanted.target, mountPoint) == Outcome::failed) {
        return Outcome::failed;
    }
    return session.apply(redirect, mountPoint);
}

void addOne(RedirectSession& session, const RamDisk& disk, const RedirectTarget& target,
            const std::set<std::string>& startupDisks, RedirectStart start) {
    FolderRedirect wanted{.id = UUID::random(), .diskName = disk.name, .target = target};
    if (session.settle(wanted) == Outcome::failed) {
        return;
    }
    const auto stored = session.where([&](const FolderRedirect& redirect) {
        return isOf(disk.name)(redirect) && isMeantBy(session.redirecting(), redirect, target);
    });
    if (!stored.empty()) {
        wanted.id = stored.front()->id;
        if (start == RedirectStart::copyOfOriginal) {
            session.fail(*stored.front(), std::runtime_error("It is kept on “" + disk.name
                                                             + "” already. Remove it first to begin with "
                                                               "a copy."));
        } else if (!isConflict(session, wanted, session.list(), startupDisks)) {
            applyStored(session, *stored.front(), *disk.mountPoint, wanted.target);
        }
        return;
    }
    if (isConflict(session, wanted, session.list(), startupDisks)) {
        return;
    }
    for (const auto& other : dropWhatGivesWay(session.redirecting(), wanted, session.list())) {
        session.note(other, "“" + shownName(session.redirecting().place(other.target))
                                + "” was to be kept on “" + other.diskName + "”. It gives way to “"
                                + wanted.diskName + "”.");
    }
    session.list().push_back(std::move(wanted));
    auto& added = session.list().back();
    if (session.apply(added, *disk.mountPoint, start) == Outcome::failed && !mayBeInPlace(added)) {
        session.tidy(added, *disk.mountPoint);
        session.list().pop_back();
        session.store();
    }
}

void removeTargets(RedirectSession& session, const std::string& diskName,
                   const std::optional<std::filesystem::path>& mountPoint,
                   const std::vector<RedirectTarget>& targets, FilesOnDisk files) {
    for (const auto& target : targets) {
        const auto stored = session.where([&](const FolderRedirect& redirect) {
            return isOf(diskName)(redirect) && isMeantBy(session.redirecting(), redirect, target);
        });
        if (stored.empty()) {
            session.fail({.id = UUID::random(), .diskName = diskName, .target = target},
                         std::runtime_error("It is not kept on “" + diskName + "”."));
        }
    }
    forgetAll(session, mountPoint, files, [&](const FolderRedirect& redirect) {
        return isOf(diskName)(redirect) && isOneOf(session.redirecting(), targets)(redirect);
    });
}

} // namespace ramdisk
