#include "RamDiskCore/Startup/SessionLifecycleUseCase.h"

#include "RamDiskCore/Disks/MakeFolders.h"
#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskCore/Startup/TransferError.h"
#include "RamDiskCore/Values/Text.h"

#include <algorithm>
#include <future>
#include <iterator>
#include <mutex>
#include <utility>

namespace ramdisk {

namespace {

/// An observer of one disk's copying, out of one for all.
ProgressObserver observerFor(const std::string& name, const SessionLifecycleUseCase::Observer& observer) {
    if (!observer) {
        return {};
    }
    return [name, &observer](const TransferProgress& progress) { observer(name, progress); };
}

/// One call at a time, for an observer of disks that are worked on side by side.
SessionLifecycleUseCase::Observer oneAtATime(const SessionLifecycleUseCase::Observer& observer,
                                             std::mutex& mutex) {
    if (!observer) {
        return {};
    }
    return [&observer, &mutex](const std::string& name, const TransferProgress& progress) {
        const std::lock_guard lock(mutex);
        observer(name, progress);
    };
}

/// Runs `work` on every element side by side and gives the results in the elements' order.
template <typename Element, typename Work>
auto sideBySide(const std::vector<Element>& elements, const Work& work) {
    using Result = std::invoke_result_t<const Work&, const Element&>;
    std::vector<std::future<Result>> running;
    running.reserve(elements.size());
    for (const auto& element : elements) {
        running.push_back(std::async(std::launch::async, [&work, &element] { return work(element); }));
    }
    std::vector<Result> results;
    results.reserve(running.size());
    for (auto& one : running) {
        results.push_back(one.get());
    }
    return results;
}

void append(std::vector<RedirectFailure>& list, std::vector<RedirectFailure> more) {
    std::move(more.begin(), more.end(), std::back_inserter(list));
}

/// What a repair tells. A list of redirects that cannot be read would keep every disk from being ejected.
std::vector<RedirectFailure> repaired(FolderRedirectsUseCase& redirects) {
    try {
        return redirects.repair();
    } catch (const std::exception& error) {
        return {RedirectFailure::of(error)};
    }
}

} // namespace

bool LaunchReport::needsAttention() const noexcept {
    return !isListReadable || notUnderstood > 0
           || std::any_of(outcomes.begin(), outcomes.end(),
                          [](const StartupOutcome& outcome) { return outcome.needsAttention(); });
}

SessionLifecycleUseCase::SessionLifecycleUseCase(RamDiskServices services,
                                                 std::shared_ptr<ManageProfilesUseCase> profiles,
                                                 std::shared_ptr<ProfileContentsUseCase> contents,
                                                 std::shared_ptr<FolderRedirectsUseCase> redirects)
    : services_(std::move(services)),
      profiles_(std::move(profiles)),
      contents_(std::move(contents)),
      redirects_(std::move(redirects)),
      making_(services_, contents_),
      saveAndEject_(services_, profiles_, contents_, redirects_) {}

std::optional<KeptDisk> SessionLifecycleUseCase::kept(const RamDisk& disk) const {
    if (!disk.isCreatedByRamDisk) {
        return std::nullopt;
    }
    auto profiles = profiles_->list();
    for (auto& profile : profiles) {
        if (namesEqual(profile.name, disk.name)) {
            return KeptDisk{disk, std::move(profile)};
        }
    }
    // Renamed by a process that could not tell the record, or the record was renamed by hand.
    for (auto& profile : profiles) {
        KeptDisk candidate{disk, std::move(profile)};
        if (contents_->isNoted(candidate)) {
            return candidate;
        }
    }
    // The list was lost or damaged while this session runs.
    for (const auto& profile : launched_) {
        KeptDisk candidate{disk, profile};
        if (contents_->isNoted(candidate)) {
            return candidate;
        }
    }
    return std::nullopt;
}

std::vector<KeptDisk> SessionLifecycleUseCase::keptDisks() const {
    std::vector<KeptDisk> found;
    for (const auto& disk : services_.list->listOwn()) {
        auto one = disk.mountPoint ? kept(disk) : std::nullopt;
        if (one) {
            found.push_back(std::move(*one));
        }
    }
    return found;
}

LaunchReport SessionLifecycleUseCase::launch(const Observer& observer) {
    LaunchReport report;
    report.redirectFailures = redirects_->repair();
    std::mutex mutex;
    const auto shared = oneAtATime(observer, mutex);
    std::mutex failuresMutex;
    report.isListReadable = profiles_->isReadable();
    report.notUnderstood = profiles_->notUnderstood();
    launched_ = profiles_->list();
    report.outcomes = sideBySide(launched_, [&](const RamDiskProfile& profile) {
        std::vector<RedirectFailure> failures;
        auto outcome = create(profile, failures, shared);
        const std::lock_guard lock(failuresMutex);
        append(report.redirectFailures, std::move(failures));
        return outcome;
    });
    return report;
}

StartupOutcome SessionLifecycleUseCase::create(const RamDiskProfile& profile,
                                               std::vector<RedirectFailure>& redirectFailures,
                                               const Observer& observer) {
    std::optional<StartupOutcome> outcome;
    try {
        contents_->whileLocked(profile,
                               [&] { outcome = createLocked(profile, observerFor(profile.name, observer)); });
        if (outcome->disk() != nullptr) {
            append(redirectFailures, redirects_->apply(*outcome->disk()));
        }
    } catch (const std::exception& error) {
        if (!outcome || outcome->disk() == nullptr) {
            return {StartupOutcome::Failed{profile, transferError(error)}};
        }
        // The list of redirects could not be stored; the disk itself is ready.
        return {StartupOutcome::FoldersNotCreated{*outcome->disk(), false, {transferError(error)}}};
    }
    return std::move(*outcome);
}

StartupOutcome SessionLifecycleUseCase::createLocked(const RamDiskProfile& profile,
                                                     const ProgressObserver& observer) {
    contents_->tidy(profile);
    for (auto& standing : keptDisks()) {
        if (standing.profile.id == profile.id) {
            return takeUp(standing, observer);
        }
    }
    std::optional<KeptDisk> fresh = KeptDisk{making_.make(profile), profile};
    if (!profile.keepsContents) {
        return addInitialContents(*fresh, false);
    }
    try {
        const bool isRestored = restoreOnto(fresh, observer);
        return addInitialContents(*fresh, isRestored);
    } catch (const std::exception& error) {
        return fresh ? afterFailedRestore(*fresh, error)
                     : StartupOutcome{StartupOutcome::Failed{profile, transferError(error)}};
    }
}

bool SessionLifecycleUseCase::restoreOnto(std::optional<KeptDisk>& fresh, const ProgressObserver& observer) {
    try {
        return contents_->restore(*fresh, observer);
    } catch (const CopyNeedsRoom&) {
        traceCaught("session", "the disk is made anew with room that only a restore may use");
    }
    making_.makeAnewWithRoom(fresh);
    return contents_->restore(*fresh, observer);
}

/// A disk that stands when the session starts: complete, or left half filled by one that was killed.
StartupOutcome SessionLifecycleUseCase::takeUp(const KeptDisk& kept, const ProgressObserver& observer) {
    // A session that was killed while it ejected the disk may have left it closed to writing.
    services_.writeBlocking->allow(kept.disk);
    if (!kept.profile.keepsContents) {
        return {StartupOutcome::AlreadyMounted{kept.disk}};
    }
    std::optional<KeptDisk> disk = kept;
    try {
        if (contents_->isPartlyFilled(kept)) {
            const bool isRestored = restoreOnto(disk, observer);
            return addInitialContents(*disk, isRestored);
        }
        contents_->requireBound(kept);
        contents_->noteUnsaved(kept);
        return {StartupOutcome::AlreadyMounted{kept.disk}};
    } catch (const std::exception& error) {
        if (!disk) {
            return {StartupOutcome::Failed{kept.profile, transferError(error)}};
        }
        if (disk->disk.instance != kept.disk.instance) {
            return afterFailedRestore(*disk, error);
        }
        return {StartupOutcome::RestoreFailed{kept.disk, transferError(error)}};
    }
}

StartupOutcome SessionLifecycleUseCase::afterFailedRestore(const KeptDisk& kept,
                                                           const std::exception& error) {
    auto reason = transferError(error);
    if (!contents_->isPartlyFilled(kept)) {
        return {StartupOutcome::RestoreFailed{kept.disk, std::move(reason)}};
    }
    // Half of the files look like all of them to who does not know. An empty disk does not, and another copy
    // can be loaded onto it.
    try {
        services_.eject->eject(kept.disk, Force::no);
    } catch (const std::exception&) {
        traceCaught("session", "a disk whose restore failed half way cannot be made anew");
        return {StartupOutcome::RestoreFailed{kept.disk, std::move(reason)}};
    }
    try {
        auto empty = making_.make(kept.profile);
        contents_->withdrawDisk(kept.profile);
        return {StartupOutcome::RestoreFailed{std::move(empty), std::move(reason)}};
    } catch (const std::exception&) {
        traceCaught("session", "there is no disk: the restore failed, and then the making of an empty one");
        return {StartupOutcome::Failed{kept.profile, std::move(reason)}};
    }
}

/// What is put onto a new disk besides its saved files.
StartupOutcome SessionLifecycleUseCase::addInitialContents(const KeptDisk& kept, bool restoredContents) {
    std::vector<RamDiskError> errors;
    const auto& volume = *kept.disk.mountPoint;
    if (kept.profile.seedFolder && !restoredContents) {
        try {
            services_.folderCopier->copy(*kept.profile.seedFolder, volume);
        } catch (const std::exception& error) {
            errors.push_back(transferError(error));
        }
    }
    for (auto& error : makeFolders(*services_.folderMaker, kept.profile.folders, volume)) {
        errors.push_back(std::move(error));
    }
    if (!errors.empty()) {
        return {StartupOutcome::FoldersNotCreated{kept.disk, restoredContents, std::move(errors)}};
    }
    return {StartupOutcome::Created{kept.disk, restoredContents}};
}

std::vector<LostDisk> SessionLifecycleUseCase::noticeLostDisks() {
    const auto disks = services_.list->listOwn();
    const auto stands = [&disks](const KeptDisk& seen) {
        return std::any_of(disks.begin(), disks.end(), [&seen](const RamDisk& disk) {
            return disk.mountPoint && disk.instance == seen.disk.instance;
        });
    };
    std::vector<LostDisk> lost;
    for (const auto& seen : std::exchange(seen_, {})) {
        if (!stands(seen) && contents_->wasLost(seen)) {
            const auto copies = contents_->copies(seen.profile);
            lost.push_back(
                {seen.disk.name, copies.empty() ? std::nullopt : std::optional(copies.front().savedAt)});
        }
    }
    for (const auto& disk : disks) {
        auto one = disk.mountPoint && disk.instance ? kept(disk) : std::nullopt;
        if (one && one->profile.keepsContents) {
            seen_.push_back(std::move(*one));
        }
    }
    return lost;
}

ShutdownReport SessionLifecycleUseCase::quit(Force force, const Observer& observer) {
    ShutdownReport report;
    if (!redirects_->isReadable()) {
        trace("redirects", "the list cannot be read, and is made anew before the disks go");
        report.redirectFailures = repaired(*redirects_);
    }
    if (redirects_->notUnderstood() > 0) {
        report.redirectFailures.push_back({{.id = UUID::random(), .diskName = ""},
                                           "The list of folders that are kept on disks has entries that are "
                                           "not understood. See `tramdisk redirects`."});
    }
    auto disks = services_.list->listOwn();
    // One without a mount point was ejected before, and only its memory is not back yet.
    std::erase_if(disks, [this, known = profiles_->list()](const RamDisk& disk) {
        return !disk.mountPoint || (!kept(disk) && !contents_->isOrphan(disk, known));
    });
    std::mutex mutex;
    const auto shared = oneAtATime(observer, mutex);
    const auto results = sideBySide(disks, [&](const RamDisk& disk) {
        return leave(disk, SaveBeforeEject::yes, force, observerFor(disk.name, shared));
    });
    for (std::size_t index = 0; index < disks.size(); ++index) {
        const auto& disk = disks[index];
        const auto& result = results[index];
        append(report.redirectFailures, result.redirectFailures);
        if (result.isSaved) {
            report.saved.push_back(disk);
        }
        if (result.saveError) {
            report.saveFailures.push_back({disk, *result.saveError});
        } else if (result.ejectError) {
            report.ejectFailures.push_back({disk, *result.ejectError});
        } else {
            report.ejected.push_back(disk);
        }
    }
    // A disk that somebody else unmounted is not among those that were ejected.
    try {
        for (auto& failure : redirects_->undoLost()) {
            if (std::find(report.redirectFailures.begin(), report.redirectFailures.end(), failure)
                == report.redirectFailures.end()) {
                report.redirectFailures.push_back(std::move(failure));
            }
        }
    } catch (const std::exception& error) {
        report.redirectFailures.push_back(RedirectFailure::of(error));
    }
    return report;
}

SaveAndEjectUseCase::Result SessionLifecycleUseCase::leave(const RamDisk& disk, SaveBeforeEject saving,
                                                           Force force, const ProgressObserver& observer) {
    return saveAndEject_.execute(disk, kept(disk), saving, force, observer);
}

} // namespace ramdisk
