#pragma once

#include "RamDiskCore/Disks/CreateRamDiskUseCase.h"
#include "RamDiskCore/Disks/EjectRamDiskUseCase.h"
#include "RamDiskCore/Disks/ListRamDisksUseCase.h"
#include "RamDiskCore/Disks/RenameRamDiskUseCase.h"
#include "RamDiskCore/Memory/GetMemoryOverviewUseCase.h"
#include "RamDiskCore/Ports/VolumeUsersListing.h"

#include <memory>

namespace ramdisk {

/// Everything that acts on disks, built once at the start of a process by its platform's factory and handed
/// to whoever needs it. Owns the use cases and adapters for the life of the process.
struct RamDiskServices {
    std::shared_ptr<CreateRamDiskUseCase> create;
    std::shared_ptr<ListRamDisksUseCase> list;
    std::shared_ptr<EjectRamDiskUseCase> eject;
    std::shared_ptr<RenameRamDiskUseCase> rename;
    std::shared_ptr<SearchIndexControlling> indexing;
    std::shared_ptr<GetMemoryOverviewUseCase> memoryOverview;
    std::shared_ptr<VolumeUsersListing> volumeUsers;
    ValidationContextProvider validationContext;
    RamDiskSpecificationValidator validator;
};

} // namespace ramdisk
