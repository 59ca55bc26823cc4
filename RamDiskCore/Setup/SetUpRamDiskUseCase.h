#pragma once

#include "RamDiskCore/Disks/RamDiskServices.h"
#include "RamDiskCore/Redirects/FolderRedirectsUseCase.h"
#include "RamDiskCore/Setup/RamDiskSetupResult.h"
#include "RamDiskCore/Startup/ManageProfilesUseCase.h"
#include "RamDiskCore/Values/RamDiskSetup.h"

#include <memory>

namespace ramdisk {

/// Makes a disk with everything around it: its record as a startup disk, its initial contents, folders and
/// redirects. The creation succeeds or throws; what follows never undoes the disk, and each step runs
/// whatever the earlier ones gave.
class SetUpRamDiskUseCase {
public:
    SetUpRamDiskUseCase(RamDiskServices services, std::shared_ptr<ManageProfilesUseCase> profiles,
                        std::shared_ptr<FolderRedirectsUseCase> redirects);

    /// @throws RamDiskError as `CreateRamDiskUseCase::execute`, and `invalidSpecification` when the list of
    ///         folders are invalid, before anything is made.
    RamDiskSetupResult execute(RamDiskSetup setup);

private:
    void storeProfile(const RamDiskSetup& setup, RamDiskSetupResult& result) const;
    void copySeed(const RamDiskSetup& setup, RamDiskSetupResult& result) const;

    RamDiskServices services_;
    std::shared_ptr<ManageProfilesUseCase> profiles_;
    std::shared_ptr<FolderRedirectsUseCase> redirects_;
};

} // namespace ramdisk
