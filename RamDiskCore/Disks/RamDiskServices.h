#pragma once

#include "RamDiskCore/Disks/CreateRamDiskUseCase.h"
#include "RamDiskCore/Disks/EjectRamDiskUseCase.h"
#include "RamDiskCore/Disks/ListRamDisksUseCase.h"
#include "RamDiskCore/Disks/RenameRamDiskUseCase.h"
#include "RamDiskCore/Memory/GetMemoryOverviewUseCase.h"
#include "RamDiskCore/Ports/ContentArchiving.h"
#include "RamDiskCore/Ports/FolderCopying.h"
#include "RamDiskCore/Ports/FolderMaking.h"
#include "RamDiskCore/Ports/MemoryTrimming.h"
#include "RamDiskCore/Ports/PassphraseGenerating.h"
#include "RamDiskCore/Ports/VolumeAccessControlling.h"
#include "RamDiskCore/Ports/VolumeMarking.h"
#include "RamDiskCore/Ports/VolumeRenaming.h"
#include "RamDiskCore/Ports/VolumeUsersListing.h"
#include "RamDiskCore/Ports/WriteBlocking.h"

#include <memory>

namespace ramdisk {

/// Everything that acts on disks. The platform's factory builds it once, at the start of a process. It owns
/// the use cases and adapters for the life of the process.
struct RamDiskServices {
    std::shared_ptr<CreateRamDiskUseCase> create;
    std::shared_ptr<ListRamDisksUseCase> list;
    std::shared_ptr<EjectRamDiskUseCase> eject;
    std::shared_ptr<GetMemoryOverviewUseCase> memoryOverview;
    std::shared_ptr<VolumeUsersListing> volumeUsers;
    std::shared_ptr<FolderCopying> folderCopier;
    std::shared_ptr<FolderMaking> folderMaker;
    ValidationContextProvider validationContext;
    RamDiskSpecificationValidator validator;
    std::shared_ptr<ContentArchiving> archiver;
    /// Renames a volume as it is asked to. `rename` checks the name first, and finds the disk again.
    std::shared_ptr<VolumeRenaming> renamer;
    std::shared_ptr<SearchIndexControlling> indexing;
    std::shared_ptr<VolumeMarking> marker;
    std::shared_ptr<RamDiskInventory> inventory;
    std::shared_ptr<RenameRamDiskUseCase> rename;
    std::shared_ptr<VolumeAccessControlling> access;
    std::shared_ptr<PassphraseGenerating> passphrases;
    std::shared_ptr<WriteBlocking> writeBlocking;
    std::shared_ptr<MemoryTrimming> memoryTrimming;
};

} // namespace ramdisk
