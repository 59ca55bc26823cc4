#include "RamDiskCore/Redirects/FolderRedirectsUseCase.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskCore/Redirects/RedirectConflicts.h"
#include "RamDiskCore/Redirects/RedirectSession.h"
#include "RamDiskCore/Values/Text.h"

#include <algorithm>
#include <functional>
#include <stdexcept>
#include <utility>

namespace ramdisk {

namespace {

using Targets = std::vector<RedirectTarget>;
using Outcome = RedirectSession::Outcome;
using FilesOnDisk = FolderRedirectsUseCase::FilesOnDisk;

auto isOf(const std::string& diskName) {
    return [diskName](const FolderRedirect& redirect) { return namesEqual(redirect.diskName, diskName); };
}

auto isOneOf(const FolderRedirecting& redirecting, const Targets& targets) {
    return [&redirecting, &targets](const FolderRedirect& redirect) {
        return std::any_of(targets.begin(), targets.end(), [&](const RedirectTarget& target) {
            return isMeantBy(redirecting, redirect, target);
        });
    };
}

std::vector<std::filesystem::path> mountPointsOf(const std::vector<RamDisk>& disks) {
    std::vector<std::filesystem::path> found;
    for (const auto& disk : disks) {
        if (disk.mountPoint) {
            found.push_back(*disk.mountPoint);
        }
    }
    return found;
}

void requireMounted(const RamDisk& disk) {
    if (!disk.mountPoint) {
        throw RamDiskError(RamDiskError::NotMounted{disk.device});
    }
}

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

/// Puts a stored redirect in place, unless it already is. If its tool keeps its files elsewhere by now, the
/// redirect follows it there.
Outcome applyStored(RedirectSession& session, FolderRedirect& redirect,
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
        session.fail(other, std::runtime_error("“" + shownName(session.redirecting().place(other.target))
                                               + "” was to be kept on “" + other.diskName
                                               + "”. It gives way to “" + wanted.diskName + "”."));
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
                   const std::optional<std::filesystem::path>& mountPoint, const Targets& targets,
                   FilesOnDisk files) {
    for (const auto& target : targets) {
        const auto stored = session.where([&](const FolderRedirect& redirect) {
            return isOf(diskName)(redirect) && isOneOf(session.redirecting(), {target})(redirect);
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

} // namespace

FolderRedirectsUseCase::FolderRedirectsUseCase(std::shared_ptr<RedirectRepository> repository,
                                               std::shared_ptr<FolderRedirecting> redirecting,
                                               std::shared_ptr<RamDiskInventory> inventory,
                                               std::shared_ptr<const StartupDiskNaming> startupDisks)
    : repository_(std::move(repository)),
      redirecting_(std::move(redirecting)),
      inventory_(std::move(inventory)),
      startupDisks_(std::move(startupDisks)) {}

FolderRedirectsUseCase::Failures
FolderRedirectsUseCase::inSession(const std::function<void(RedirectSession&)>& work) {
    Failures failures;
    repository_
        ->update([&] {
            static_cast<void>(readList());
            RedirectSession session(*repository_, *redirecting_);
            work(session);
            failures = std::move(session.failures());
        })
        .get();
    return failures;
}

std::vector<FolderRedirect> FolderRedirectsUseCase::readList() const {
    if (!repository_->isReadable()) {
        throw std::runtime_error("The list of folders that are kept on disks cannot be read, so nothing was "
                                 "changed. `tramdisk redirects repair` sets it aside and makes it anew.");
    }
    return repository_->load();
}

std::optional<std::filesystem::path> FolderRedirectsUseCase::mountPointOf(const std::vector<RamDisk>& disks,
                                                                          const std::string& name) {
    for (const auto& disk : disks) {
        if (disk.mountPoint && namesEqual(disk.name, name)) {
            return disk.mountPoint;
        }
    }
    return std::nullopt;
}

std::optional<std::filesystem::path> FolderRedirectsUseCase::whereMounted(const std::string& diskName) const {
    try {
        return mountPointOf(inventory_->list(), diskName);
    } catch (const std::exception&) {
        traceCaught("redirects", "the folder on the disk is left there");
        return std::nullopt;
    }
}

std::vector<FolderRedirect> FolderRedirectsUseCase::list() const {
    return readList();
}

std::vector<RedirectStatus>
FolderRedirectsUseCase::statuses(const std::vector<FolderRedirect>& redirects) const {
    std::vector<RedirectStatus> statuses;
    if (redirects.empty()) {
        return statuses;
    }
    const auto disks = inventory_->list();
    for (const auto& redirect : redirects) {
        statuses.push_back(redirecting_->status(redirect, mountPointOf(disks, redirect.diskName)));
    }
    return statuses;
}

std::vector<FolderRedirect> FolderRedirectsUseCase::redirects(const std::string& diskName) const {
    auto list = readList();
    std::erase_if(list, std::not_fn(isOf(diskName)));
    return list;
}

void FolderRedirectsUseCase::requirePlaces(const Targets& targets) const {
    for (const auto& target : targets) {
        static_cast<void>(redirecting_->place(target));
    }
}

FolderRedirectsUseCase::Failures FolderRedirectsUseCase::add(const RamDisk& disk, const Targets& targets,
                                                             RedirectStart start) {
    requireMounted(disk);
    const auto startupDisks = startupDisks_->startupDiskNames();
    return inSession([&](RedirectSession& session) {
        for (const auto& target : targets) {
            addOne(session, disk, target, startupDisks, start);
        }
    });
}

FolderRedirectsUseCase::Failures FolderRedirectsUseCase::remove(const std::string& diskName,
                                                                const Targets& targets, LostOriginals lost,
                                                                FilesOnDisk files) {
    // The link of a lost original may still lead to the folder on the disk.
    const auto mountPoint = lost == LostOriginals::givenUp ? std::nullopt : whereMounted(diskName);
    return inSession([&](RedirectSession& session) {
        if (lost == LostOriginals::givenUp) {
            session.giveUpLostOriginals();
        }
        removeTargets(session, diskName, mountPoint, targets, files);
    });
}

FolderRedirectsUseCase::Failures FolderRedirectsUseCase::change(const RamDisk& disk, const Targets& targets) {
    requireMounted(disk);
    const auto startupDisks = startupDisks_->startupDiskNames();
    return inSession([&](RedirectSession& session) {
        forgetAll(session, disk.mountPoint, FilesOnDisk::guarded, [&](const FolderRedirect& redirect) {
            return isOf(disk.name)(redirect) && !isOneOf(session.redirecting(), targets)(redirect);
        });
        for (const auto& target : targets) {
            addOne(session, disk, target, startupDisks, RedirectStart::empty);
        }
    });
}

FolderRedirectsUseCase::Failures FolderRedirectsUseCase::apply(const RamDisk& disk) {
    if (redirects(disk.name).empty()) {
        return {};
    }
    if (!inventory_->isStillMounted(disk)) {
        throw RamDiskError(RamDiskError::NotMounted{disk.device});
    }
    return inSession([&](RedirectSession& session) {
        for (auto* const redirect : session.where(isOf(disk.name))) {
            applyStored(session, *redirect, *disk.mountPoint, redirect->target);
        }
    });
}

FolderRedirectsUseCase::Failures FolderRedirectsUseCase::undo(const std::string& diskName, Force force) {
    const auto mountPoint = whereMounted(diskName);
    const auto strays = [&](const RedirectRepository::List& known) {
        auto found = mountPoint ? unlisted(*redirecting_, known, {*mountPoint},
                                           repository_->notUnderstood() > 0 ? StandingSearch::homeFolder
                                                                            : StandingSearch::disks)
                                : std::vector<FolderRedirect>();
        std::erase_if(found, [&](const FolderRedirect& stray) {
            return linkOf(stray).parent_path().parent_path() != *mountPoint;
        });
        return found;
    };
    const auto stored = readList();
    if (std::none_of(stored.begin(), stored.end(),
                     [&](const auto& one) { return isOf(diskName)(one) && mayBeInPlace(one); })
        && strays(stored).empty()) {
        return {};
    }
    return inSession([&](RedirectSession& session) {
        const auto notListed = strays(session.list());
        if (force == Force::yes) {
            session.useForce();
        }
        for (auto* const redirect : session.inReverse(isOf(diskName))) {
            session.undo(*redirect);
        }
        for (const auto& stray : notListed) {
            session.takeAway(stray);
        }
    });
}

FolderRedirectsUseCase::Failures FolderRedirectsUseCase::undoLost() {
    const auto stored = list();
    if (std::none_of(stored.begin(), stored.end(), mayBeInPlace)) {
        return {};
    }
    return inSession([&](RedirectSession& session) {
        const auto disks = inventory_->list();
        for (auto* const redirect : session.inReverse(mayBeInPlace)) {
            const auto mountPoint = mountPointOf(disks, redirect->diskName);
            if (redirect->applying.value_or(false) || !mountPoint
                || !redirecting_->isInForce(*redirect, *mountPoint)) {
                trace("redirects", "undoing “{}” of {}: {}", redirecting_->place(redirect->target).nameOnDisk,
                      redirect->diskName,
                      redirect->applying.value_or(false) ? "it was cut short"
                      : mountPoint                       ? "it does not lead to its disk"
                                                         : "its disk is gone");
                session.undo(*redirect);
            }
        }
    });
}

FolderRedirectsUseCase::Failures FolderRedirectsUseCase::rebuildList() {
    Failures told;
    const auto disks = inventory_->list();
    const auto mountPoints = mountPointsOf(disks);
    repository_
        ->update([&] {
            if (repository_->isReadable()) {
                return;
            }
            auto found = redirecting_->standing(mountPoints, StandingSearch::homeFolder);
            for (auto& redirect : found) {
                for (const auto& disk : disks) {
                    if (disk.mountPoint && disk.mountPoint->filename() == redirect.diskName) {
                        redirect.diskName = disk.name;
                    }
                }
            }
            repository_->save(found);
            const auto count = std::to_string(found.size());
            told.push_back({{.id = UUID::random(), .diskName = ""},
                            "The list of folders that are kept on disks could not be read, and is set aside "
                            "beside the new one. Folders found in place: "
                                + count + ". See `tramdisk redirects`, and add what is missing."});
        })
        .get();
    return told;
}

FolderRedirectsUseCase::Failures FolderRedirectsUseCase::repair() {
    auto failures = repository_->isReadable() ? Failures{} : rebuildList();
    for (auto& failure : undoLost()) {
        failures.push_back(std::move(failure));
    }
    const auto mountPoints = mountPointsOf(inventory_->list());
    const auto search = repository_->notUnderstood() > 0 ? StandingSearch::homeFolder : StandingSearch::disks;
    if (!unlisted(*redirecting_, list(), mountPoints, search).empty()
        || !redirecting_->strayMounts(list()).empty()) {
        const auto strays = inSession([&](RedirectSession& session) {
            for (const auto& stray : unlisted(*redirecting_, session.list(), mountPoints, search)) {
                session.takeAway(stray);
            }
            for (const auto& stray : redirecting_->strayMounts(session.list())) {
                session.takeAway(stray);
            }
        });
        failures.insert(failures.end(), strays.begin(), strays.end());
    }
    for (const auto& original : redirecting_->strayOriginals(list())) {
        const auto name = original.filename().string();
        failures.push_back(
            {{.id = UUID::random(), .diskName = "", .target = {RedirectTarget::Folder{original.string()}}},
             "“" + original.string()
                 + "” is the original of a folder that was kept on a disk, and no redirect is stored for it. "
                   "To have it back, give it the name “"
                 + name.substr(0, name.rfind(".ramdisk-original")) + "” again."});
    }
    return failures;
}

FolderRedirectsUseCase::Failures FolderRedirectsUseCase::rename(const std::string& oldName,
                                                                const std::string& newName) {
    return inSession([&](RedirectSession& session) {
        const auto moved = session.where(isOf(oldName));
        if (moved.empty()) {
            return;
        }
        std::vector<FolderRedirect> renamed;
        for (auto* const redirect : moved) {
            redirect->diskName = newName;
            renamed.push_back(*redirect);
        }
        std::erase_if(session.list(), [&](const FolderRedirect& leftover) {
            return isOf(newName)(leftover) && !mayBeInPlace(leftover)
                   && std::any_of(renamed.begin(), renamed.end(),
                                  [&](const FolderRedirect& other) {
                                      return overlap(*redirecting_, other.target, leftover.target);
                                  })
                   && std::none_of(renamed.begin(), renamed.end(),
                                   [&](const FolderRedirect& other) { return other.id == leftover.id; });
        });
        session.store();
        const auto mountPoint = mountPointOf(inventory_->list(), newName);
        for (auto* const redirect : session.where(isOf(newName))) {
            if (mountPoint) {
                applyStored(session, *redirect, *mountPoint, redirect->target);
            }
        }
    });
}

FolderRedirectsUseCase::Failures FolderRedirectsUseCase::forget(const std::string& diskName) {
    const auto mountPoint = whereMounted(diskName);
    return inSession([&](RedirectSession& session) {
        forgetAll(session, mountPoint, FilesOnDisk::guarded, isOf(diskName));
    });
}

} // namespace ramdisk
