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
    /// Redirects that failed, both those left from an earlier session and those of the new disks.
    std::vector<RedirectFailure> redirectFailures;
    /// False when the list is there but cannot be read; then no disk is made from it.
    bool isListReadable = true;
};

/// What happened to one disk that was to be removed. Without an error it is gone.
struct LeaveResult {
    /// Whether the disk keeps files and they are in its saved copy now.
    bool isSaved = false;
    std::optional<RamDiskError> saveError;
    std::optional<RamDiskError> ejectError;
    ReleaseOutcome outcome;
    std::vector<RedirectFailure> redirectFailures;
};

/// Makes the startup disks at launch and removes them at quit, with everything that belongs to them: saved
/// files, folders, redirects. Several disks are worked on at the same time, independently.
///
/// A disk whose files could not be saved stays. A process that is killed at launch or at quit leaves working
/// disks and complete copies. The next launch goes on from there.
class SessionLifecycleUseCase {
public:
    /// Told which disk is being filled or saved and how far that is. Called from several threads, but never
    /// from two at once.
    using Observer = std::function<void(const std::string& name, const TransferProgress& progress)>;

    SessionLifecycleUseCase(RamDiskServices services, std::shared_ptr<ManageProfilesUseCase> profiles,
                            std::shared_ptr<ProfileContentsUseCase> contents,
                            std::shared_ptr<FolderRedirectsUseCase> redirects);

    /// Repairs what earlier sessions left half done, then makes every startup disk that does not exist.
    LaunchReport launch(const Observer& observer);

    /// Makes one startup disk: creates it, fills it with its saved files or, where there are none, with its
    /// initial contents, makes its folders and applies its redirects. If only some of the files could be put
    /// onto the disk, it is ejected again.
    StartupOutcome create(const RamDiskProfile& profile, std::vector<RedirectFailure>& redirectFailures,
                          const Observer& observer);

    /// Saves and ejects every startup disk, also those that this object made and the list has lost since. One
    /// that keeps files for a record that is lost fails. With `Force::yes` also those that are in use, but
    /// never those that could not be saved.
    ShutdownReport quit(Force force, const Observer& observer);

    /// Removes a disk, whether it is a startup disk or not: saves its files if it keeps them, undoes its
    /// redirects, then ejects it. Fails when the disk keeps files and the record of that is lost, and, where
    /// writing can be blocked, unless forced, when programs do not let it be blocked. A disk that could not
    /// be saved is left as it is. One that could not be ejected gets its redirects back.
    LeaveResult leave(const RamDisk& disk, SaveBeforeEject saving, Force force,
                      const ProgressObserver& observer);

    /// The mounted disks that were made from a profile.
    /// @throws RamDiskError `inventoryUnavailable`
    [[nodiscard]] std::vector<KeptDisk> keptDisks() const;

    /// The profile that a disk was made from, if there is one.
    [[nodiscard]] std::optional<KeptDisk> kept(const RamDisk& disk) const;

private:
    StartupOutcome createLocked(const RamDiskProfile& profile, const ProgressObserver& observer);
    RamDisk make(const RamDiskProfile& profile);
    StartupOutcome takeUp(const KeptDisk& kept, const ProgressObserver& observer);
    StartupOutcome addInitialContents(const KeptDisk& kept, bool restoredContents);
    StartupOutcome afterFailedRestore(const KeptDisk& kept, const std::exception& error);
    /// @returns false for a disk that kept changing.
    [[nodiscard]] bool saveWhileInUse(const KeptDisk& kept, const ProgressObserver& observer);
    /// @throws RamDiskError `ejectFailed` when programs go on writing.
    void leaveFolders(const RamDisk& disk, Force force, LeaveResult& result);
    void blockWriting(const RamDisk& disk, Force force) const;
    bool saveForGood(const KeptDisk& kept, LeaveResult& result, const ProgressObserver& observer);

    RamDiskServices services_;
    std::shared_ptr<ManageProfilesUseCase> profiles_;
    std::shared_ptr<ProfileContentsUseCase> contents_;
    std::shared_ptr<FolderRedirectsUseCase> redirects_;
    /// The profiles of the launch, for the quit.
    std::vector<RamDiskProfile> launched_;
};

} // namespace ramdisk
