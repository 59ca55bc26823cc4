#include "RamDiskCore/Startup/SessionLifecycleUseCase.h"

#include "RamDiskCore/Disks/MakeFolders.h"
#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskCore/Startup/TransferError.h"
#include "RamDiskCore/Values/Text.h"

#include <algorithm>
#include <chrono>
#include <future>
#include <iterator>
#include <mutex>
#include <thread>
#include <utility>

namespace ramdisk {

namespace {

/// A program that opens and closes its file again and again leaves a gap within this time.
constexpr int blockingAttempts = 30;
constexpr std::chrono::milliseconds blockingPause{15};

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
        return {{{.id = UUID::random(), .diskName = ""}, error.what()}};
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
      redirects_(std::move(redirects)) {}

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
    // Renamed by a process that did not live to tell the record.
    for (auto& profile : profiles) {
        KeptDisk candidate{disk, std::move(profile)};
        if (contents_->isBound(candidate)) {
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
    std::optional<KeptDisk> fresh = KeptDisk{make(profile), profile};
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
    const auto replacement = contents_->interruptedLoad(*fresh);
    services_.eject->eject(fresh->disk, Force::no);
    const auto former = *std::exchange(fresh, std::nullopt);
    contents_->noteLeft(former, ProfileContentsUseCase::LeftFiles::givenUp);
    fresh = KeptDisk{make(former.profile, RestoreRoom::yes, replacement), former.profile};
    return contents_->restore(*fresh, observer);
}

RamDisk SessionLifecycleUseCase::make(const RamDiskProfile& profile, RestoreRoom room,
                                      const std::optional<std::string>& replacement) {
    if (profile.keepsContents) {
        contents_->announceDisk(profile, replacement);
    }
    auto wanted = specificationOf(profile);
    wanted.hasRestoreRoom = room == RestoreRoom::yes;
    try {
        return services_.create->execute(std::move(wanted), CreateRamDiskUseCase::Purpose::startupDisk)
            .ramDisk;
    } catch (...) {
        contents_->withdrawDisk(profile);
        throw;
    }
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
        auto empty = make(kept.profile);
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
        report.redirectFailures.push_back({{.id = UUID::random(), .diskName = ""}, error.what()});
    }
    return report;
}

LeaveResult SessionLifecycleUseCase::leave(const RamDisk& disk, SaveBeforeEject saving, Force force,
                                           const ProgressObserver& observer) {
    LeaveResult result;
    const auto startupDisk = kept(disk);
    // One without a mount point was unmounted before. Nothing of it can be saved any more, but its memory may
    // still come back.
    const bool saves = saving == SaveBeforeEject::yes && startupDisk && startupDisk->profile.keepsContents
                       && disk.mountPoint;
    try {
        if (saving == SaveBeforeEject::yes && !saves && disk.mountPoint
            && contents_->isOrphan(disk, profiles_->list())) {
            throw RamDiskError(RamDiskError::ContentsTransferFailed{
                "“" + disk.name
                + "” keeps its files, but the list of startup disks cannot be read or has lost it."});
        }
        if (saves) {
            result.isSaved = saveWhileInUse(*startupDisk, observer);
        }
    } catch (const std::exception& error) {
        result.saveError = transferError(error);
        return result;
    }
    try {
        leaveFolders(disk, force, result);
        if (saves) {
            blockWriting(disk, force);
        }
        if (!saves || saveForGood(*startupDisk, result, observer)) {
            // One without a mount point was left before.
            const bool isSaved = result.isSaved || !disk.mountPoint;
            result.outcome = eject(disk, startupDisk, force,
                                   isSaved ? ProfileContentsUseCase::LeftFiles::saved
                                           : ProfileContentsUseCase::LeftFiles::givenUp);
            return result;
        }
    } catch (const std::exception& error) {
        const auto* ours = dynamic_cast<const RamDiskError*>(&error);
        result.ejectError =
            ours != nullptr
                ? *ours
                : RamDiskError(RamDiskError::EjectFailed{disk.device, error.what(), EjectObstacle::other});
    }
    if (!disk.mountPoint) {
        return result;
    }
    services_.writeBlocking->allow(disk);
    try {
        auto failures = redirects_->apply(disk);
        // One that is in use is why the disk stays.
        std::erase_if(failures, [](const RedirectFailure& failure) {
            return failure.kind == RedirectFailure::Kind::inUse;
        });
        append(result.redirectFailures, std::move(failures));
    } catch (const std::exception&) {
        // Why the disk stays is what the user must see; the redirects are undone and lose nothing.
        traceCaught("redirects", "the redirects of a disk that stays are not put back");
    }
    return result;
}

/// With the lock of its saved copies, so that nobody takes a disk that is on its way for one that was lost.
ReleaseOutcome SessionLifecycleUseCase::eject(const RamDisk& disk, const std::optional<KeptDisk>& startupDisk,
                                              Force force, ProfileContentsUseCase::LeftFiles files) {
    if (!startupDisk) {
        return services_.eject->eject(disk, force);
    }
    ReleaseOutcome outcome;
    contents_->whileLocked(startupDisk->profile, [&] {
        outcome = services_.eject->eject(disk, force);
        contents_->noteLeft(*startupDisk, files);
    });
    return outcome;
}

/// Takes the tools' folders off the disk. One that a program uses would keep the disk.
void SessionLifecycleUseCase::leaveFolders(const RamDisk& disk, Force force, LeaveResult& result) {
    for (auto& failure : redirects_->undo(disk.name, force)) {
        if (failure.kind == RedirectFailure::Kind::inUse && !result.ejectError) {
            // Forced, only what force does not help against is left.
            result.ejectError = RamDiskError(
                RamDiskError::EjectFailed{disk.device, std::get<std::string>(failure.message),
                                          force == Force::yes ? EjectObstacle::other : EjectObstacle::busy});
        } else {
            result.redirectFailures.push_back(std::move(failure));
        }
    }
    if (result.ejectError) {
        throw RamDiskError(*result.ejectError);
    }
}

/// Saves while everything is still in its place, since this takes longest. A disk that keeps changing is
/// saved once nobody can write to it any more.
bool SessionLifecycleUseCase::saveWhileInUse(const KeptDisk& kept, const ProgressObserver& observer) {
    try {
        contents_->save(kept, Verification::no, observer);
        return true;
    } catch (const RamDiskError& error) {
        if (!std::holds_alternative<RamDiskError::FilesKeptChanging>(error.value())) {
            throw;
        }
        traceCaught("save", "the disk is saved when writing to it is blocked");
        return false;
    }
}

void SessionLifecycleUseCase::blockWriting(const RamDisk& disk, Force force) const {
    for (int attempt = 1; services_.writeBlocking->block(disk) == WriteBlocking::Outcome::busy; ++attempt) {
        if (attempt == blockingAttempts) {
            if (force == Force::yes) {
                return;
            }
            // What it writes after the last look would be lost.
            throw RamDiskError(
                RamDiskError::EjectFailed{disk.device, "a program is writing to it.", EjectObstacle::busy});
        }
        std::this_thread::sleep_for(blockingPause);
    }
}

/// Saves what changed since the last save, with writing barred where that is possible, so that nothing can
/// change any more before the disk goes.
bool SessionLifecycleUseCase::saveForGood(const KeptDisk& kept, LeaveResult& result,
                                          const ProgressObserver& observer) {
    try {
        contents_->save(kept, Verification::no, observer);
        result.isSaved = true;
        return true;
    } catch (const std::exception& error) {
        result.isSaved = false;
        result.saveError = transferError(error);
        return false;
    }
}

} // namespace ramdisk
