#pragma once

#include "RamDiskCore/Redirects/FolderRedirectsUseCase.h"
#include "RamDiskCore/Startup/ProfileContentsUseCase.h"

#include <cstddef>
#include <memory>
#include <vector>

namespace ramdisk {

/// Puts a saved copy of the user's choice onto a mounted disk, in place of everything that is on it.
class LoadSavedContentsUseCase {
public:
    struct Result {
        RestoredVolume restored;
        /// Folders that could not be taken off the disk before, or put back onto it afterwards.
        std::vector<RedirectFailure> redirectFailures;
    };

    LoadSavedContentsUseCase(std::shared_ptr<ProfileContentsUseCase> contents,
                             std::shared_ptr<FolderRedirectsUseCase> redirects);

    /// Loads copy `number`, 1 being the latest. The disk's redirects rest meanwhile, so that no tool sees its
    /// folder half there.
    /// @throws RamDiskError as `ProfileContentsUseCase::load`; std::exception when the list of redirects
    /// could
    ///         not be stored.
    Result load(const KeptDisk& kept, std::size_t number, const ProgressObserver& observer);

private:
    std::shared_ptr<ProfileContentsUseCase> contents_;
    std::shared_ptr<FolderRedirectsUseCase> redirects_;
};

} // namespace ramdisk
