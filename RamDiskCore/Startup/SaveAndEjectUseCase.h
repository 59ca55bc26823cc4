#pragma once

#include "RamDiskCore/Disks/RamDiskServices.h"
#include "RamDiskCore/Redirects/FolderRedirectsUseCase.h"
#include "RamDiskCore/Startup/ManageProfilesUseCase.h"
#include "RamDiskCore/Startup/ProfileContentsUseCase.h"
#include "RamDiskCore/Startup/SaveBeforeEject.h"

#include <memory>
#include <optional>
#include <vector>

namespace ramdisk {

/// Removes a disk, whether it is a startup disk or not: saves its files if it keeps them, undoes its
/// redirects, then ejects it.
///
/// A disk that could not be saved is left as it is. One that could not be ejected gets its redirects back.
class SaveAndEjectUseCase {
public:
    /// What happened to the disk. Without an error it is gone.
    struct Result {
        /// Whether the disk keeps files and they are in its saved copy now.
        bool isSaved = false;
        std::optional<RamDiskError> saveError;
        std::optional<RamDiskError> ejectError;
        ReleaseOutcome outcome;
        std::vector<RedirectFailure> redirectFailures;
    };

    SaveAndEjectUseCase(RamDiskServices services, std::shared_ptr<ManageProfilesUseCase> profiles,
                        std::shared_ptr<ProfileContentsUseCase> contents,
                        std::shared_ptr<FolderRedirectsUseCase> redirects);

    /// Fails when the disk keeps files and the record of that is lost, and, where writing can be blocked,
    /// unless forced, when programs do not let it be blocked.
    /// @param startupDisk the same disk with the profile that it was made from, if there is one.
    Result execute(const RamDisk& disk, const std::optional<KeptDisk>& startupDisk, SaveBeforeEject saving,
                   Force force, const ProgressObserver& observer);

private:
    /// @throws RamDiskError `contentsTransferFailed` for a disk that keeps files for a record that is lost.
    void requireRecord(const RamDisk& disk) const;
    /// @returns false for a disk that kept changing.
    [[nodiscard]] bool saveWhileInUse(const KeptDisk& kept, const ProgressObserver& observer);
    /// @throws RamDiskError `ejectFailed` when a program uses one of them.
    void leaveFolders(const RamDisk& disk, Force force, Result& result);
    /// @throws RamDiskError `ejectFailed` when programs go on writing.
    void blockWriting(const RamDisk& disk, Force force) const;
    bool saveForGood(const KeptDisk& kept, Result& result, const ProgressObserver& observer);
    [[nodiscard]] ReleaseOutcome eject(const RamDisk& disk, const std::optional<KeptDisk>& startupDisk,
                                       Force force, ProfileContentsUseCase::LeftFiles files);
    void takeBack(const RamDisk& disk, Result& result);

    RamDiskServices services_;
    std::shared_ptr<ManageProfilesUseCase> profiles_;
    std::shared_ptr<ProfileContentsUseCase> contents_;
    std::shared_ptr<FolderRedirectsUseCase> redirects_;
};

} // namespace ramdisk
