#include "RamDiskInfrastructure/MacTools/MacAdapters.h"

#include "RamDiskInfrastructure/MacTools/DiskUtilVolumeFormatter.h"
#include "RamDiskInfrastructure/MacTools/DiskUtilVolumeRenamer.h"
#include "RamDiskInfrastructure/MacTools/HDIUtilContentArchiver.h"
#include "RamDiskInfrastructure/MacTools/HDIUtilRamDiskInventory.h"
#include "RamDiskInfrastructure/MacTools/LsofVolumeUsers.h"
#include "RamDiskInfrastructure/MacTools/MDUtilIndexController.h"
#include "RamDiskInfrastructure/MacTools/ToolPaths.h"

namespace ramdisk {

RamDiskServices makeMacServices(const MacAdapters& adapters) {
    const auto inventory = std::make_shared<HDIUtilRamDiskInventory>(
        HDIUtilRamDiskInventory::Ports{adapters.runner, adapters.statistics, adapters.footprints,
                                       adapters.privateMounts, adapters.marks, adapters.media});
    const auto allocator = std::make_shared<RamDeviceAllocator>(
        RamDeviceAllocator::Ports{adapters.runner, adapters.method, adapters.privateMounts,
                                  RamDeviceAllocator::attachedInListing(adapters.runner), adapters.media});
    const auto formatter = std::make_shared<DiskUtilVolumeFormatter>(
        DiskUtilVolumeFormatter::Ports{adapters.runner, adapters.privateMounts, adapters.marks});
    const auto indexing = std::make_shared<MDUtilIndexController>(adapters.runner);
    RamDiskServices services;
    services.validationContext = {adapters.memory, adapters.volumes, adapters.startupDisks};
    services.create = std::make_shared<CreateRamDiskUseCase>(
        CreateRamDiskUseCase::Ports{.allocator = allocator,
                                    .formatter = formatter,
                                    .inventory = inventory,
                                    .indexing = indexing,
                                    .passphrases = adapters.passphrases,
                                    .contextProvider = services.validationContext,
                                    .validator = services.validator});
    services.list = std::make_shared<ListRamDisksUseCase>(inventory);
    services.eject = std::make_shared<EjectRamDiskUseCase>(allocator, inventory);
    services.rename = std::make_shared<RenameRamDiskUseCase>(
        std::make_shared<DiskUtilVolumeRenamer>(adapters.runner), inventory, services.validationContext);
    services.indexing = indexing;
    services.memoryOverview = std::make_shared<GetMemoryOverviewUseCase>(adapters.memory, inventory);
    services.volumeUsers = std::make_shared<LsofVolumeUsers>(adapters.runner, toolPaths::lsof);
    return services;
}

std::shared_ptr<ContentArchiving> makeMacContentArchiver(const MacAdapters& adapters) {
    return std::make_shared<HDIUtilContentArchiver>(
        HDIUtilImages::Ports{.runner = adapters.runner, .media = adapters.media}, adapters.statistics);
}

} // namespace ramdisk
