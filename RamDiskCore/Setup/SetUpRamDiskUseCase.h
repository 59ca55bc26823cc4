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

    /// @throws RamDiskError as `CreateRamDiskUseCase::execute`, and `invalidSpecification` when the list of
    ///         folders is invalid, before anything is made.
    RamDiskSetupResult execute(RamDiskSetup setup);

private:
    void storeProfile(const RamDiskSetup& setup, RamDiskSetupResult& result) const;
    void copySeed(const RamDiskSetup& setup, RamDiskSetupResult& result) const;

    RamDiskServices services_;
    std::shared_ptr<ManageProfilesUseCase> profiles_;
    std::shared_ptr<FolderRedirectsUseCase> redirects_;
};

} // namespace ramdisk
