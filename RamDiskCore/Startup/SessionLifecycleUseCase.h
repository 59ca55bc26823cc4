#pragma once

#include "RamDiskCore/Disks/RamDiskServices.h"
#include "RamDiskCore/Redirects/FolderRedirectsUseCase.h"
#include "RamDiskCore/Startup/ManageProfilesUseCase.h"
#include "RamDiskCore/Startup/ProfileContentsUseCase.h"
#include "RamDiskCore/Startup/SaveBeforeEject.h"
#include "RamDiskCore/Startup/ShutdownReport.h"
#include "RamDiskCore/Startup/StartupOutcome.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
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
    /// How many entries of the list are of a kind that this version does not know. No disk is made from them.
    std::size_t notUnderstood = 0;

    /// Whether a disk is not as its entry says. Redirects that failed are told, and tried again at quit.
    [[nodiscard]] bool needsAttention() const noexcept;
};

/// A disk that was to keep its files and is gone without having been ejected.
struct LostDisk {
    std::string name;
    /// When its files were last saved. Absent when they never were.
    std::optional<std::chrono::system_clock::time_point> savedAt;
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
    /// initial contents, makes its folders and applies its redirects. If the files cannot be put onto it, it
    /// stands empty, and is not saved until the user has decided what becomes of it.
    StartupOutcome create(const RamDiskProfile& profile, std::vector<RedirectFailure>& redirectFailures,
                          const Observer& observer);

    /// The disks that keep their files, stood when this was last called, and are gone by now without having
    /// been ejected: somebody unmounted them. Each is told once. May wait for an eject that is under way.
    /// @throws RamDiskError `inventoryUnavailable`; the next call tells them then.
    [[nodiscard]] std::vector<LostDisk> noticeLostDisks();

    /// Saves and ejects every startup disk, also those that this object made and the list has lost since. One
    /// that keeps files for a record that is lost fails. With `Force::yes` also those that are in use, but
    /// never those that could not be saved.
    ShutdownReport quit(Force force, const Observer& observer);

    /// Removes a disk, whether it is a startup disk or not: saves its files if it keeps them, undoes its
    /// redirects, then ejects it. Fails when the disk keeps files and the record of that is lost, and, where
    /// writing can be blocked, unless forced, when programs do not let it be blocked. A disk that could not
    /// be saved is left as it is. One that could not be ejected gets its redirects back while it is mounted.
    LeaveResult leave(const RamDisk& disk, SaveBeforeEject saving, Force force,
                      const ProgressObserver& observer);

    /// The mounted disks that were made from a profile.
    /// @throws RamDiskError `inventoryUnavailable`
    [[nodiscard]] std::vector<KeptDisk> keptDisks() const;

    /// The profile that a disk was made from, if there is one.
    [[nodiscard]] std::optional<KeptDisk> kept(const RamDisk& disk) const;

private:
    StartupOutcome createLocked(const RamDiskProfile& profile, const ProgressObserver& observer);
    enum class RestoreRoom { no, yes };
    /// @param replacement the copy that an interrupted load had chosen, which the disk gets.
    RamDisk make(const RamDiskProfile& profile, RestoreRoom room = RestoreRoom::no,
                 const std::optional<std::string>& replacement = {});
    /// Makes the disk anew if it has no room for what fitted onto its like.
    /// @throws as `ProfileContentsUseCase::restore`; without a disk then, if it could not be made anew.
    [[nodiscard]] bool restoreOnto(std::optional<KeptDisk>& fresh, const ProgressObserver& observer);
    StartupOutcome takeUp(const KeptDisk& kept, const ProgressObserver& observer);
    StartupOutcome addInitialContents(const KeptDisk& kept, bool restoredContents);
    StartupOutcome afterFailedRestore(const KeptDisk& kept, const std::exception& error);
    /// @returns false for a disk that kept changing.
    [[nodiscard]] bool saveWhileInUse(const KeptDisk& kept, const ProgressObserver& observer);
    /// @throws RamDiskError `ejectFailed` when programs go on writing.
    void leaveFolders(const RamDisk& disk, Force force, LeaveResult& result);
    void blockWriting(const RamDisk& disk, Force force) const;
    bool saveForGood(const KeptDisk& kept, LeaveResult& result, const ProgressObserver& observer);
    [[nodiscard]] ReleaseOutcome eject(const RamDisk& disk, const std::optional<KeptDisk>& startupDisk,
                                       Force force, ProfileContentsUseCase::LeftFiles files);

    RamDiskServices services_;
    std::shared_ptr<ManageProfilesUseCase> profiles_;
    std::shared_ptr<ProfileContentsUseCase> contents_;
    std::shared_ptr<FolderRedirectsUseCase> redirects_;
    /// The profiles of the launch, for the quit.
    std::vector<RamDiskProfile> launched_;
    /// The disks that keep their files, as they were seen last.
    std::vector<KeptDisk> seen_;
};

} // namespace ramdisk
