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

void requireMounted(const RamDisk& disk) {
    if (!disk.mountPoint) {
        throw RamDiskError(RamDiskError::NotMounted{disk.device});
    }
}

/// Where the disk of this name is mounted; absent when it is not.
std::optional<std::filesystem::path> mountPointOf(const std::vector<RamDisk>& disks,
                                                  const std::string& name) {
    for (const auto& disk : disks) {
        if (disk.mountPoint && namesEqual(disk.name, name)) {
            return disk.mountPoint;
        }
    }
    return std::nullopt;
}

void forgetAll(RedirectSession& session, const std::optional<std::filesystem::path>& mountPoint,
               const std::function<bool(const FolderRedirect&)>& which) {
    std::vector<FolderRedirect> gone;
    for (auto* const redirect : session.inReverse(which)) {
        const auto asRecorded = *redirect;
        if (session.undo(*redirect) == Outcome::done) {
            gone.push_back(asRecorded);
        }
    }
    if (std::erase_if(session.list(),
                      [&](const auto& redirect) { return which(redirect) && !mayBeInPlace(redirect); })
        != 0) {
        session.store();
    }
    for (const auto& redirect : gone) {
        if (mountPoint) {
            session.free(redirect, *mountPoint);
        }
    }
}

/// Puts a stored redirect in place, unless it already is.
Outcome applyStored(RedirectSession& session, FolderRedirect& redirect,
                    const std::filesystem::path& mountPoint) {
    if (redirect.restoreState && !redirect.applying.value_or(false)
        && session.redirecting().isInForce(redirect, mountPoint)) {
        return Outcome::done;
    }
    if (mayBeInPlace(redirect)) {
        trace("redirects", "undoing what stands of a redirect of {} before it is made anew",
              redirect.diskName);
    }
    if (session.undo(redirect) == Outcome::failed || session.settle(redirect) == Outcome::failed) {
        return Outcome::failed;
    }
    for (const auto* const other : session.where(mayBeInPlace)) {
        if (overlap(session.redirecting(), other->target, redirect.target)) {
            session.fail(redirect,
                         RamDiskError(RamDiskError::RedirectTaken{
                             session.redirecting().place(redirect.target).nameOnDisk, other->diskName}));
            return Outcome::failed;
        }
    }
    return session.apply(redirect, mountPoint);
}

void addOne(RedirectSession& session, const RamDisk& disk, const RedirectTarget& target,
            const std::set<std::string>& startupDisks) {
    FolderRedirect wanted{.id = UUID::random(), .diskName = disk.name, .target = target};
    if (session.settle(wanted) == Outcome::failed) {
        return;
    }
    const auto stored = session.where([&](const FolderRedirect& redirect) {
        return isOf(disk.name)(redirect) && isMeantBy(session.redirecting(), redirect, target);
    });
    if (!stored.empty()) {
        if (!sameTarget(session.redirecting(), stored.front()->target, wanted.target)) {
            // The tool keeps its files elsewhere by now.
            if (session.undo(*stored.front()) == Outcome::failed) {
                return;
            }
            stored.front()->target = wanted.target;
        }
        applyStored(session, *stored.front(), *disk.mountPoint);
        return;
    }
    try {
        requireNoConflict(session.redirecting(), wanted, session.list(), startupDisks);
    } catch (const RamDiskError& error) {
        session.fail(wanted, error);
        return;
    }
    for (const auto& other : dropWhatGivesWay(session.redirecting(), wanted, session.list())) {
        session.fail(other, std::runtime_error("“" + shownName(session.redirecting().place(other.target))
                                               + "” was to be kept on “" + other.diskName
                                               + "”. It gives way to “" + wanted.diskName + "”."));
    }
    session.list().push_back(std::move(wanted));
    if (session.apply(session.list().back(), *disk.mountPoint) == Outcome::failed
        && !mayBeInPlace(session.list().back())) {
        session.list().pop_back();
        session.store();
    }
}

void removeTargets(RedirectSession& session, const std::string& diskName,
                   const std::optional<std::filesystem::path>& mountPoint, const Targets& targets) {
    for (const auto& target : targets) {
        const auto stored = session.where([&](const FolderRedirect& redirect) {
            return isOf(diskName)(redirect) && isOneOf(session.redirecting(), {target})(redirect);
        });
        if (stored.empty()) {
            session.fail({.id = UUID::random(), .diskName = diskName, .target = target},
                         std::runtime_error("It is not kept on “" + diskName + "”."));
        }
    }
    forgetAll(session, mountPoint, [&](const FolderRedirect& redirect) {
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
            RedirectSession session(*repository_, *redirecting_);
            work(session);
            failures = std::move(session.failures());
        })
        .get();
    return failures;
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
    return repository_->load();
}

std::vector<FolderRedirect> FolderRedirectsUseCase::redirects(const std::string& diskName) const {
    auto list = repository_->load();
    std::erase_if(list, std::not_fn(isOf(diskName)));
    return list;
}

FolderRedirectsUseCase::Failures FolderRedirectsUseCase::add(const RamDisk& disk, const Targets& targets) {
    requireMounted(disk);
    const auto startupDisks = startupDisks_->startupDiskNames();
    return inSession([&](RedirectSession& session) {
        for (const auto& target : targets) {
            addOne(session, disk, target, startupDisks);
        }
    });
}

FolderRedirectsUseCase::Failures FolderRedirectsUseCase::remove(const std::string& diskName,
                                                                const Targets& targets, LostOriginals lost) {
    // The link of a lost original may still lead to the folder on the disk.
    const auto mountPoint = lost == LostOriginals::givenUp ? std::nullopt : whereMounted(diskName);
    return inSession([&](RedirectSession& session) {
        if (lost == LostOriginals::givenUp) {
            session.giveUpLostOriginals();
        }
        removeTargets(session, diskName, mountPoint, targets);
    });
}

FolderRedirectsUseCase::Failures FolderRedirectsUseCase::change(const RamDisk& disk, const Targets& targets) {
    requireMounted(disk);
    const auto startupDisks = startupDisks_->startupDiskNames();
    return inSession([&](RedirectSession& session) {
        forgetAll(session, disk.mountPoint, [&](const FolderRedirect& redirect) {
            return isOf(disk.name)(redirect) && !isOneOf(session.redirecting(), targets)(redirect);
        });
        for (const auto& target : targets) {
            addOne(session, disk, target, startupDisks);
        }
    });
}

FolderRedirectsUseCase::Failures FolderRedirectsUseCase::apply(const RamDisk& disk) {
    if (redirects(disk.name).empty()) {
        return {};
    }
    requireMounted(disk);
    return inSession([&](RedirectSession& session) {
        for (auto* const redirect : session.where(isOf(disk.name))) {
            applyStored(session, *redirect, *disk.mountPoint);
        }
    });
}

FolderRedirectsUseCase::Failures FolderRedirectsUseCase::undo(const std::string& diskName) {
    const auto stored = redirects(diskName);
    if (std::none_of(stored.begin(), stored.end(), mayBeInPlace)) {
        return {};
    }
    return inSession([&](RedirectSession& session) {
        for (auto* const redirect : session.inReverse(isOf(diskName))) {
            session.undo(*redirect);
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

FolderRedirectsUseCase::Failures FolderRedirectsUseCase::repair() {
    auto failures = undoLost();
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
                applyStored(session, *redirect, *mountPoint);
            }
        }
    });
}

FolderRedirectsUseCase::Failures FolderRedirectsUseCase::forget(const std::string& diskName) {
    const auto mountPoint = whereMounted(diskName);
    return inSession([&](RedirectSession& session) { forgetAll(session, mountPoint, isOf(diskName)); });
}

} // namespace ramdisk
