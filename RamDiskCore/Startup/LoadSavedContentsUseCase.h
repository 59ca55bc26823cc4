#pragma once

#include "RamDiskCore/Disks/RamDiskServices.h"
#include "RamDiskCore/Redirects/FolderRedirectsUseCase.h"
#include "RamDiskCore/Startup/ProfileContentsUseCase.h"
#include "RamDiskCore/Startup/StartupDiskMaking.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

namespace ramdisk {

/// Replaces everything on a mounted disk by a saved copy that the user chooses.
class LoadSavedContentsUseCase {
public:
    struct Result {
        RestoredVolume restored;
        /// Redirects that could not be undone before, or put in place again afterwards.
        std::vector<RedirectFailure> redirectFailures;
    };

    LoadSavedContentsUseCase(RamDiskServices services, std::shared_ptr<ProfileContentsUseCase> contents,
                             std::shared_ptr<FolderRedirectsUseCase> redirects);

    /// Loads copy `number`; 1 is the latest. Meanwhile the disk's redirects are undone, so that no tool sees
    /// its folder half filled. If the disk has too little room for what was saved on one of its size, it is
    /// ejected and made anew.
    /// @throws RamDiskError as `ProfileContentsUseCase::load`, and as the eject and the making of a disk;
    ///         std::exception when the list of redirects could not be stored.
    Result load(const KeptDisk& kept, std::size_t number, const ProgressObserver& observer);

private:
    StartupDiskMaking making_;
    std::shared_ptr<ProfileContentsUseCase> contents_;
    std::shared_ptr<FolderRedirectsUseCase> redirects_;
};

} // namespace ramdisk
