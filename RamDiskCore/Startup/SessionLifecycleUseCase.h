#pragma once

#include "RamDiskCore/Disks/RamDiskServices.h"
#include "RamDiskCore/Redirects/FolderRedirectsUseCase.h"
#include "RamDiskCore/Startup/ManageProfilesUseCase.h"
#include "RamDiskCore/Startup/ProfileContentsUseCase.h"
#include "RamDiskCore/Startup/SaveBeforeEject.h"
#include "RamDiskCore/Startup/ShutdownReport.h"
#include "RamDiskCore/Startup/StartupOutcome.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace ramdisk {

/// What a launch did.
struct LaunchReport {
    /// One per startup disk, in the order of the list.
    std::vector<StartupOutcome> outcomes;
    /// Folders that could not be put where they belong, whether left from before or of the new disks.
    std::vector<RedirectFailure> redirectFailures;
};

/// What became of one disk that was to go. Without an error it is gone.
struct LeaveResult {
    /// Whether the disk keeps files at all and they are in their saved copy now.
    bool isSaved = false;
    std::optional<RamDiskError> saveError;
    std::optional<RamDiskError> ejectError;
    ReleaseOutcome outcome;
    std::vector<RedirectFailure> redirectFailures;
};

/// Makes the startup disks at launch and takes them away at quit, with everything that belongs to them: saved
/// files, folders, redirects. Disks are independent and worked on side by side.
///
/// A disk whose files could not be saved stays. A process that is killed at launch or at quit leaves disks
/// that stand and copies that are whole; the next launch goes on from there.
class SessionLifecycleUseCase {
public:
    /// Told which disk is being filled or saved and how far that is, from several threads but never at once.
    using Observer = std::function<void(const std::string& name, const TransferProgress& progress)>;

    SessionLifecycleUseCase(RamDiskServices services, std::shared_ptr<ManageProfilesUseCase> profiles,
                            std::shared_ptr<ProfileContentsUseCase> contents,
                            std::shared_ptr<FolderRedirectsUseCase> redirects);

    /// Puts back what earlier sessions left half done, then makes every startup disk that does not stand.
    LaunchReport launch(const Observer& observer);

    /// Makes one startup disk: created, filled with its saved files or, where there are none, with its
    /// initial contents, its folders made, its redirects applied. A disk onto which only a part of the files
    /// could be put is ejected again.
    StartupOutcome create(const RamDiskProfile& profile, std::vector<RedirectFailure>& redirectFailures,
                          const Observer& observer);

    /// Saves and ejects every mounted startup disk. With `Force::yes` also those that are in use; never those
    /// that could not be saved.
    ShutdownReport quit(Force force, const Observer& observer);

    /// Takes a disk away, whether it is a startup disk or not: its files saved if it keeps them, its
    /// redirects undone, then ejected. A disk that could not be saved is left as it is; one that could not be
    /// ejected gets its redirects back.
    LeaveResult leave(const RamDisk& disk, SaveBeforeEject saving, Force force,
                      const ProgressObserver& observer);

    /// The mounted disks that were made from a startup disk's record.
    /// @throws RamDiskError `inventoryUnavailable`
    [[nodiscard]] std::vector<KeptDisk> keptDisks() const;

    /// The record that a disk was made from, if it was.
    [[nodiscard]] std::optional<KeptDisk> kept(const RamDisk& disk) const;

private:
    StartupOutcome createLocked(const RamDiskProfile& profile, const ProgressObserver& observer);
    RamDisk make(const RamDiskProfile& profile);
    StartupOutcome takeUp(const KeptDisk& kept, const ProgressObserver& observer);
    StartupOutcome addInitialContents(const KeptDisk& kept, bool restoredContents);
    StartupOutcome afterFailedRestore(const KeptDisk& kept, const std::exception& error);
    bool saveForGood(const KeptDisk& kept, LeaveResult& result, const ProgressObserver& observer);

    RamDiskServices services_;
    std::shared_ptr<ManageProfilesUseCase> profiles_;
    std::shared_ptr<ProfileContentsUseCase> contents_;
    std::shared_ptr<FolderRedirectsUseCase> redirects_;
};

} // namespace ramdisk
