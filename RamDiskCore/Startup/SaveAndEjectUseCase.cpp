#include "RamDiskCore/Startup/SaveAndEjectUseCase.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskCore/Startup/TransferError.h"

#include <chrono>
#include <iterator>
#include <thread>
#include <utility>
#include <variant>

namespace ramdisk {

namespace {

/// A program that opens and closes its file again and again leaves a gap within this time.
constexpr int blockingAttempts = 30;
constexpr std::chrono::milliseconds blockingPause{15};

} // namespace

SaveAndEjectUseCase::SaveAndEjectUseCase(RamDiskServices services,
                                         std::shared_ptr<ManageProfilesUseCase> profiles,
                                         std::shared_ptr<ProfileContentsUseCase> contents,
                                         std::shared_ptr<FolderRedirectsUseCase> redirects)
    : services_(std::move(services)),
      profiles_(std::move(profiles)),
      contents_(std::move(contents)),
      redirects_(std::move(redirects)) {}

SaveAndEjectUseCase::Result SaveAndEjectUseCase::execute(const RamDisk& disk,
                                                         const std::optional<KeptDisk>& startupDisk,
                                                         SaveBeforeEject saving, Force force,
                                                         const ProgressObserver& observer) {
    Result result;
    // One without a mount point was unmounted before. Nothing of it can be saved any more, but its memory may
    // still come back.
    const bool mustSave = saving == SaveBeforeEject::yes && disk.mountPoint;
    const bool saves = mustSave && startupDisk && startupDisk->profile.keepsContents;
    try {
        if (saves) {
            result.isSaved = saveWhileInUse(*startupDisk, observer);
        } else if (mustSave) {
            requireRecord(disk);
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
    } catch (const RamDiskError& error) {
        result.ejectError = error;
    } catch (const std::exception& error) {
        result.ejectError =
            RamDiskError(RamDiskError::EjectFailed{disk.device, error.what(), EjectObstacle::other});
    }
    if (disk.mountPoint) {
        takeBack(disk, result);
    }
    return result;
}

void SaveAndEjectUseCase::requireRecord(const RamDisk& disk) const {
    if (const auto folder = contents_->keptElsewhere(disk)) {
        throw RamDiskError(RamDiskError::ContentsTransferFailed{
            "“" + disk.name + "” keeps its files in “" + folder->string()
            + "”, which belongs to another home folder than this command uses."});
    }
    if (contents_->isOrphan(disk, profiles_->list())) {
        throw RamDiskError(RamDiskError::ContentsTransferFailed{
            "“" + disk.name
            + "” keeps its files, but the list of startup disks cannot be read or has lost it."});
    }
}

/// What a disk that stays needs to be used as before.
void SaveAndEjectUseCase::takeBack(const RamDisk& disk, Result& result) {
    services_.writeBlocking->allow(disk);
    try {
        auto failures = redirects_->apply(disk);
        // One that is in use is why the disk stays.
        std::erase_if(failures, [](const RedirectFailure& failure) {
            return failure.kind == RedirectFailure::Kind::inUse;
        });
        std::move(failures.begin(), failures.end(), std::back_inserter(result.redirectFailures));
    } catch (const std::exception&) {
        // Why the disk stays is what the user must see; the redirects are undone and lose nothing.
        traceCaught("redirects", "the redirects of a disk that stays are not put back");
    }
}

/// With the lock of its saved copies, so that nobody takes a disk that is on its way for one that was lost.
ReleaseOutcome SaveAndEjectUseCase::eject(const RamDisk& disk, const std::optional<KeptDisk>& startupDisk,
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
void SaveAndEjectUseCase::leaveFolders(const RamDisk& disk, Force force, Result& result) {
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
bool SaveAndEjectUseCase::saveWhileInUse(const KeptDisk& kept, const ProgressObserver& observer) {
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

void SaveAndEjectUseCase::blockWriting(const RamDisk& disk, Force force) const {
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
bool SaveAndEjectUseCase::saveForGood(const KeptDisk& kept, Result& result,
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
