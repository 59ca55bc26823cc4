#include "RamDiskInfrastructure/Archive/SavedContentsArchiver.h"
#include "RamDiskInfrastructure/Linux/FreeSpaceTrimming.h"
#include "RamDiskInfrastructure/Linux/IndexingMarkers.h"
#include "RamDiskInfrastructure/Linux/LinuxDeviceAllocator.h"
#include "RamDiskInfrastructure/Linux/LinuxMountedVolumeListing.h"
#include "RamDiskInfrastructure/Linux/LinuxRamDiskInventory.h"
#include "RamDiskInfrastructure/Linux/LinuxServices.h"
#include "RamDiskInfrastructure/Linux/LinuxVolumeFormatter.h"
#include "RamDiskInfrastructure/Linux/LinuxVolumeRenamer.h"
#include "RamDiskInfrastructure/Linux/LinuxVolumeUsers.h"
#include "RamDiskInfrastructure/Linux/LinuxWriteBlocking.h"
#include "RamDiskInfrastructure/Linux/ProcSystemMemoryProvider.h"
#include "RamDiskInfrastructure/Linux/SavedContents/LoopImageTool.h"
#include "RamDiskInfrastructure/Linux/TreeFolderCopier.h"
#include "RamDiskInfrastructure/MacTools/FileManagerFolderMaker.h"
#include "RamDiskInfrastructure/PlatformServices.h"
#include "RamDiskInfrastructure/Secrets/SecureRandomPassphraseGenerator.h"
#include "RamDiskInfrastructure/Stores/FileProfileRepository.h"

namespace ramdisk {

RamDiskServices makeRamDiskServices(const std::shared_ptr<const LinuxContext>& context) {
    const auto making = std::make_shared<DisksInMaking>();
    const auto allocator = std::make_shared<LinuxDeviceAllocator>(context, making);
    const auto inventory = std::make_shared<LinuxRamDiskInventory>(context);
    const auto memory = std::make_shared<ProcSystemMemoryProvider>(context->host.proc, context->host.sys);
    const auto indexing = std::make_shared<MarkerFileIndexController>();
    const ValidationContextProvider validationContext{
        memory, std::make_shared<LinuxMountedVolumeListing>(context),
        std::make_shared<FileProfileRepository>(context->host.applicationSupport)};
    const auto passphrases = std::make_shared<SecureRandomPassphraseGenerator>();
    RamDiskServices services;
    services.create = std::make_shared<CreateRamDiskUseCase>(
        CreateRamDiskUseCase::Ports{allocator, std::make_shared<LinuxVolumeFormatter>(context, making),
                                    inventory, indexing, passphrases, validationContext, services.validator});
    services.list = std::make_shared<ListRamDisksUseCase>(inventory);
    services.eject = std::make_shared<EjectRamDiskUseCase>(allocator, inventory);
    const auto renamer = std::make_shared<LinuxVolumeRenamer>(context);
    services.inventory = inventory;
    services.rename = std::make_shared<RenameRamDiskUseCase>(renamer, inventory, validationContext);
    services.access = renamer;
    services.folderCopier = std::make_shared<TreeFolderCopier>();
    services.folderMaker = std::make_shared<FileManagerFolderMaker>();
    services.archiver = std::make_shared<SavedContentsArchiver>(
        std::make_shared<LoopImageTool>(context->host, context->runner));
    services.passphrases = passphrases;
    services.writeBlocking = std::make_shared<LinuxWriteBlocking>();
    services.memoryTrimming = std::make_shared<FreeSpaceTrimming>();
    services.indexing = indexing;
    services.memoryOverview = std::make_shared<GetMemoryOverviewUseCase>(memory, inventory);
    services.volumeUsers = std::make_shared<LinuxVolumeUsers>(context->runner, context->host.proc);
    services.validationContext = validationContext;
    return services;
}

RamDiskServices makeRamDiskServices(std::function<void(std::string)> notice) {
    auto context = std::make_shared<LinuxContext>(LinuxHost::current());
    context->notice = std::move(notice);
    return makeRamDiskServices(context);
}

} // namespace ramdisk
