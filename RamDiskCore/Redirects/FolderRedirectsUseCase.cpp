#include "RamDiskCore/Redirects/FolderRedirectsUseCase.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskCore/Redirects/RedirectConflicts.h"
#include "RamDiskCore/Redirects/RedirectSession.h"
#include "RamDiskCore/Redirects/RedirectWork.h"
#include "RamDiskCore/Values/Text.h"

#include <algorithm>
#include <functional>
#include <stdexcept>
#include <utility>

namespace ramdisk {

namespace {

using Targets = std::vector<RedirectTarget>;

std::vector<std::filesystem::path> mountPointsOf(const std::vector<RamDisk>& disks) {
    std::vector<std::filesystem::path> found;
    for (const auto& disk : disks) {
        if (disk.mountPoint) {
            found.push_back(*disk.mountPoint);
        }
    }
    return found;
}

/// An original whose place was taken is not missed, so it is no failure.
RedirectFailure toldOf(const StrayOriginal& original) {
    return {
        {.id = UUID::random(), .diskName = "", .target = {RedirectTarget::Folder{original.place.string()}}},
        "“" + original.place.string()
            + "” is the original of a folder that was kept on a disk, and no redirect is stored for it. "
            + (original.isNameTaken
                   ? "“" + original.name + "” is there again. Keep the one of the two that you need."
                   : "To have it back, give it the name “" + original.name + "” again."),
        original.isNameTaken ? RedirectFailure::Kind::note : RedirectFailure::Kind::failure};
}

void requireMounted(const RamDisk& disk) {
    if (!disk.mountPoint) {
        throw RamDiskError(RamDiskError::NotMounted{disk.device});
    }
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
            requireReadable();
            RedirectSession session(*repository_, *redirecting_);
            work(session);
            failures = std::move(session.failures());
        })
        .get();
    return failures;
}

void FolderRedirectsUseCase::requireReadable() const {
    if (!isReadable()) {
        throw std::runtime_error("The list of folders that are kept on disks cannot be read, so nothing was "
                                 "changed. `tramdisk redirects repair` sets it aside and makes it anew.");
    }
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
    requireReadable();
    return repository_->load();
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
    auto found = list();
    std::erase_if(found, std::not_fn(isOf(diskName)));
    return found;
}

void FolderRedirectsUseCase::requirePlaces(const Targets& targets) const {
    for (const auto& target : targets) {
        static_cast<void>(redirecting_->place(redirecting_->settled(target)));
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
    return inSession([&](RedirectSession& session) {
        // The link of a lost original may still lead to the folder on the disk. Asked here, since an eject
        // may have been waited for.
        const auto mountPoint = lost == LostOriginals::givenUp ? std::nullopt : whereMounted(diskName);
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

std::vector<StandingRedirect>
FolderRedirectsUseCase::standing(const std::vector<std::filesystem::path>& mountPoints) const {
    return redirecting_->standing(
        mountPoints, notUnderstood() > 0 ? StandingSearch::homeFolder : StandingSearch::disks, list());
}

FolderRedirectsUseCase::Failures FolderRedirectsUseCase::undo(const std::string& diskName, Force force) {
    requireReadable();
    const auto mountPoint = whereMounted(diskName);
    auto found = mountPoint ? standing({*mountPoint}) : std::vector<StandingRedirect>();
    std::erase_if(found, [&](const StandingRedirect& one) {
        return one.onDisk.parent_path().parent_path() != *mountPoint;
    });
    // A rename that could not be stored leaves them under the disk's former name.
    const auto isHere = [&](const FolderRedirect& one) {
        return isOf(diskName)(one)
               || (mountPoint && mayBeInPlace(one) && redirecting_->isInForce(one, *mountPoint));
    };
    const auto stored = list();
    if (std::none_of(stored.begin(), stored.end(),
                     [&](const auto& one) { return mayBeInPlace(one) && isHere(one); })
        && unlisted(*redirecting_, found, stored).empty()) {
        return {};
    }
    return inSession([&](RedirectSession& session) {
        // Before those of the list are undone, or they would count as unlisted.
        const auto strays = unlisted(*redirecting_, std::move(found), session.list());
        if (force == Force::yes) {
            session.useForce();
        }
        for (auto* const redirect : session.inReverse(isHere)) {
            session.undo(*redirect);
        }
        for (const auto& stray : strays) {
            session.takeAway(stray.redirect);
        }
    });
}

FolderRedirectsUseCase::Failures FolderRedirectsUseCase::undoUnlessInUse(const RamDisk& disk) {
    auto failures = undo(disk.name);
    const auto busy = std::find_if(failures.begin(), failures.end(), [](const RedirectFailure& failure) {
        return failure.kind == RedirectFailure::Kind::inUse;
    });
    if (busy == failures.end()) {
        return failures;
    }
    try {
        static_cast<void>(apply(disk));
    } catch (const std::exception&) {
        // Who uses the disk is what the user must see; an undone redirect loses nothing.
        traceCaught("redirects", "the redirects of a disk that is in use are not put back");
    }
    throw RamDiskError(
        RamDiskError::EjectFailed{disk.device, std::get<std::string>(busy->message), EjectObstacle::busy});
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
            RedirectRepository::List found;
            for (auto& one : redirecting_->standing(mountPoints, StandingSearch::homeFolder, {})) {
                for (const auto& disk : disks) {
                    if (disk.mountPoint && disk.mountPoint->filename() == one.redirect.diskName) {
                        one.redirect.diskName = disk.name;
                    }
                }
                found.push_back(std::move(one.redirect));
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
    auto failures = isReadable() ? Failures{} : rebuildList();
    for (auto& failure : undoLost()) {
        failures.push_back(std::move(failure));
    }
    auto found = standing(mountPointsOf(inventory_->list()));
    if (!unlisted(*redirecting_, found, list()).empty()) {
        const auto strays = inSession([&](RedirectSession& session) {
            for (const auto& stray : unlisted(*redirecting_, std::move(found), session.list())) {
                session.takeAway(stray.redirect);
            }
        });
        failures.insert(failures.end(), strays.begin(), strays.end());
    }
    for (const auto& original : redirecting_->strayOriginals(list())) {
        failures.push_back(toldOf(original));
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
    return inSession([&](RedirectSession& session) {
        const auto mountPoint = whereMounted(diskName);
        forgetAll(session, mountPoint, FilesOnDisk::guarded, isOf(diskName));
    });
}

} // namespace ramdisk
