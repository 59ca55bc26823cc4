#include "RamDiskInfrastructure/MacTools/MacAdapters.h"

#include "RamDiskInfrastructure/MacTools/DiskUtilVolumeFormatter.h"
#include "RamDiskInfrastructure/MacTools/DiskUtilVolumeRenamer.h"
#include "RamDiskInfrastructure/MacTools/DittoFolderCopier.h"
#include "RamDiskInfrastructure/MacTools/HDIUtilContentArchiver.h"
#include "RamDiskInfrastructure/MacTools/HDIUtilRamDiskInventory.h"
#include "RamDiskInfrastructure/MacTools/MDUtilIndexController.h"
#include "RamDiskInfrastructure/MacTools/ToolPaths.h"
#include "RamDiskInfrastructure/Unix/FileManagerFolderMaker.h"
#include "RamDiskInfrastructure/Unix/LsofVolumeUsers.h"

#include <stdexcept>

namespace ramdisk {

namespace {

/// Nothing here can close a mounted volume to writing: what changes between the last save and the eject is
/// caught by the second look that every eject takes.
class NoWriteBlocking final : public WriteBlocking {
public:
    [[nodiscard]] Outcome block(const RamDisk& /*disk*/) override { return Outcome::unsupported; }
    void allow(const RamDisk& /*disk*/) noexcept override {}
};

/// The system's own RAM devices keep what they once held.
class NoMemoryTrimming final : public MemoryTrimming {
public:
    void trim(const RamDisk& /*disk*/) noexcept override {}
};

/// A volume is mounted for one kind of access, and unmounting it would take it from those who use it.
class FixedVolumeAccess final : public VolumeAccessControlling {
public:
    void setAccess(const RamDisk& volume, VolumeAccess /*access*/) override {
        throw std::runtime_error(
            "Who may open “" + volume.name
            + "” was settled when it was made. Make a new disk with the access you want.");
    }
};

} // namespace

RamDiskServices makeMacServices(const MacAdapters& adapters) {
    const auto inventory = std::make_shared<HDIUtilRamDiskInventory>(
        HDIUtilRamDiskInventory::Ports{adapters.runner, adapters.statistics, adapters.footprints,
                                       adapters.privateMounts, adapters.marks, adapters.media});
    const auto allocator = std::make_shared<RamDeviceAllocator>(RamDeviceAllocator::Ports{
        adapters.runner, adapters.method, adapters.privateMounts,
        RamDeviceAllocator::attachedInListing(adapters.runner), adapters.media, adapters.detachPause});
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
    services.inventory = inventory;
    services.passphrases = adapters.passphrases;
    services.folderCopier = std::make_shared<DittoFolderCopier>(adapters.runner);
    services.folderMaker = std::make_shared<FileManagerFolderMaker>();
    services.archiver = makeMacContentArchiver(adapters);
    services.writeBlocking = std::make_shared<NoWriteBlocking>();
    services.memoryTrimming = std::make_shared<NoMemoryTrimming>();
    services.access = std::make_shared<FixedVolumeAccess>();
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
