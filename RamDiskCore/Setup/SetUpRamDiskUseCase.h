#pragma once

#include "RamDiskCore/Disks/RamDiskServices.h"
#include "RamDiskCore/Redirects/FolderRedirectsUseCase.h"
#include "RamDiskCore/Setup/RamDiskSetupResult.h"
#include "RamDiskCore/Startup/ManageProfilesUseCase.h"
#include "RamDiskCore/Values/RamDiskSetup.h"

#include <memory>

namespace ramdisk {

/// Makes a disk with everything around it: its profile as a startup disk, its initial contents, folders and
/// redirects. The creation succeeds or throws. The later steps never undo the disk, and each runs whether or
/// not the earlier ones succeeded.
class SetUpRamDiskUseCase {
public:
    SetUpRamDiskUseCase(RamDiskServices services, std::shared_ptr<ManageProfilesUseCase> profiles,
                        std::shared_ptr<FolderRedirectsUseCase> redirects);

    /// Refuses what `execute` refuses besides the disk itself, and brings the folders into their form. What
    /// is wrong with the specification is told along with the folders.
    /// @throws RamDiskError `invalidSpecification` when the list of folders or a redirect is invalid,
    ///         `contentsTransferFailed` when there is no folder to copy from; std::exception when the list of
    ///         startup disks is needed and cannot be read.
    void check(RamDiskSetup& setup) const;

    /// @throws as `check`, before anything is made, and as `CreateRamDiskUseCase::execute`.
    RamDiskSetupResult execute(RamDiskSetup setup);

private:
    void storeProfile(const RamDiskSetup& setup, RamDiskSetupResult& result) const;
    void copySeed(const RamDiskSetup& setup, RamDiskSetupResult& result) const;

    RamDiskServices services_;
    std::shared_ptr<ManageProfilesUseCase> profiles_;
    std::shared_ptr<FolderRedirectsUseCase> redirects_;
};

} // namespace ramdisk
