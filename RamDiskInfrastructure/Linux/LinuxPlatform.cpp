#include "RamDiskInfrastructure/Linux/LinuxPlatform.h"

#include "RamDiskInfrastructure/Archive/SavedContentsArchiver.h"
#include "RamDiskInfrastructure/Commands/ProcessCommandRunner.h"
#include "RamDiskInfrastructure/Linux/Bus/LogindShutdownDelay.h"
#include "RamDiskInfrastructure/Linux/Disks/LinuxDeviceAllocator.h"
#include "RamDiskInfrastructure/Linux/Disks/LinuxMountedVolumeListing.h"
#include "RamDiskInfrastructure/Linux/Disks/LinuxRamDiskInventory.h"
#include "RamDiskInfrastructure/Linux/Disks/LinuxVolumeFormatter.h"
#include "RamDiskInfrastructure/Linux/Disks/LinuxVolumeRenamer.h"
#include "RamDiskInfrastructure/Linux/Disks/LinuxVolumeUsers.h"
#include "RamDiskInfrastructure/Linux/Disks/RecordedKeepers.h"
#include "RamDiskInfrastructure/Linux/Disks/TreeFolderCopier.h"
#include "RamDiskInfrastructure/Linux/Host/ProcSystemMemoryProvider.h"
#include "RamDiskInfrastructure/Linux/Host/SystemTools.h"
#include "RamDiskInfrastructure/Linux/Mounting/FreeSpaceTrimming.h"
#include "RamDiskInfrastructure/Linux/Mounting/LinuxWriteBlocking.h"
#include "RamDiskInfrastructure/Linux/Mounting/MountTableWatch.h"
#include "RamDiskInfrastructure/Linux/Redirects/BindMounting.h"
#include "RamDiskInfrastructure/Linux/Redirects/SystemdUserEnvironment.h"
#include "RamDiskInfrastructure/Linux/SavedContents/LoopImageTool.h"
#include "RamDiskInfrastructure/Linux/Secrets/LinuxSecretStore.h"
#include "RamDiskInfrastructure/Linux/Secrets/SecretServiceStore.h"
#include "RamDiskInfrastructure/Linux/Volumes/IndexingMarkers.h"
#include "RamDiskInfrastructure/Platform/Platform.h"
#include "RamDiskInfrastructure/Platform/TrustedEnvironment.h"
#include "RamDiskInfrastructure/Redirects/FolderRedirector.h"
#include "RamDiskInfrastructure/Secrets/SecureRandomPassphraseGenerator.h"
#include "RamDiskInfrastructure/Stores/FileProfileRepository.h"
#include "RamDiskInfrastructure/Stores/JSONUserDefaults.h"
#include "RamDiskInfrastructure/Unix/FileManagerFolderMaker.h"

#include <array>
#include <utility>

#include <linux/magic.h>
#include <sys/vfs.h>

namespace ramdisk {

namespace {

constexpr std::array settings{PlatformSetting{LinuxSecretStore::allowsKeyFileSetting, false}};

PlatformStores makeLinuxStores(const std::shared_ptr<const LinuxContext>& context) {
    const auto& host = context->host;
    auto defaults = std::make_shared<JSONUserDefaults>(host.configuration, "com.tavrin.RamDisk");
    auto secrets = std::make_shared<LinuxSecretStore>(
        std::make_unique<SecretServiceStore>("com.tavrin.RamDisk", unlockPromptHere()),
        host.applicationSupport, defaults);
    return makeStores(host.applicationSupport, std::move(defaults), std::move(secrets),
                      std::make_shared<RecordedKeepers>(context));
}

std::shared_ptr<FolderRedirecting> makeFolderRedirecting(const LinuxHost& host) {
    return std::make_shared<FolderRedirector>(FolderRedirector::Parts{
        .home = host.home,
        .reserved = {host.applicationSupport, host.configuration, host.records, host.privateMounts},
        .environment = std::make_shared<SystemdUserEnvironment>(
            std::make_shared<ProcessCommandRunner>(),
            SystemdUserEnvironment::Tools{findSystemTool("systemctl"),
                                          findSystemTool("dbus-update-activation-environment")}),
        .copier = std::make_shared<TreeFolderCopier>(),
        .mounting = std::make_shared<BindMounting>(host),
        .variables = trustedEnvironmentValue});
}

} // namespace

RamDiskServices makeLinuxServices(const std::shared_ptr<const LinuxContext>& context) {
    const auto making = std::make_shared<PendingRecords>();
    const auto allocator = std::make_shared<LinuxDeviceAllocator>(context, making);
    const auto inventory = std::make_shared<LinuxRamDiskInventory>(context);
    const auto memory = std::make_shared<ProcSystemMemoryProvider>(context->host.proc, context->host.sys);
    const auto indexing = std::make_shared<MarkerFileIndexController>();
    const ValidationContextProvider validationContext{
        memory, std::make_shared<LinuxMountedVolumeListing>(context),
        std::make_shared<FileProfileRepository>(context->host.applicationSupport)};
    const auto passphrases = std::make_shared<SecureRandomPassphraseGenerator>();
    const auto formatter = std::make_shared<LinuxVolumeFormatter>(context, making);
    const auto renamer = std::make_shared<LinuxVolumeRenamer>(context);
    RamDiskServices services;
    services.create = std::make_shared<CreateRamDiskUseCase>(CreateRamDiskUseCase::Ports{
        allocator, formatter, inventory, indexing, passphrases, validationContext, services.validator});
    services.list = std::make_shared<ListRamDisksUseCase>(inventory);
    services.eject = std::make_shared<EjectRamDiskUseCase>(allocator, inventory);
    services.memoryOverview = std::make_shared<GetMemoryOverviewUseCase>(memory, inventory);
    services.volumeUsers = std::make_shared<LinuxVolumeUsers>(context->runner, context->host.proc);
    services.folderCopier = std::make_shared<TreeFolderCopier>();
    services.folderMaker = std::make_shared<FileManagerFolderMaker>();
    services.validationContext = validationContext;
    services.archiver = std::make_shared<SavedContentsArchiver>(
        std::make_shared<LoopImageTool>(context->host, context->runner));
    services.renamer = renamer;
    services.indexing = indexing;
    services.marker = formatter;
    services.inventory = inventory;
    services.rename = std::make_shared<RenameRamDiskUseCase>(renamer, inventory, validationContext);
    services.access = renamer;
    services.passphrases = passphrases;
    services.writeBlocking = std::make_shared<LinuxWriteBlocking>();
    services.memoryTrimming = std::make_shared<FreeSpaceTrimming>();
    return services;
}

namespace {

bool isFolderInMemory(const std::filesystem::path& folder) {
    auto nearest = folder;
    std::error_code ignored;
    while (!nearest.empty() && nearest != nearest.parent_path()
           && !std::filesystem::exists(nearest, ignored)) {
        nearest = nearest.parent_path();
    }
    struct statfs volume {};
    return statfs(nearest.c_str(), &volume) == 0
           && (volume.f_type == TMPFS_MAGIC || volume.f_type == RAMFS_MAGIC);
}

} // namespace

Platform makePlatform(std::function<void(std::string)> notice) {
    const auto context = std::make_shared<LinuxContext>(LinuxHost::current());
    context->notice = std::move(notice);
    return {.services = makeLinuxServices(context),
            .stores = makeLinuxStores(context),
            .redirecting = makeFolderRedirecting(context->host),
            .shutdownDelay = std::make_shared<LogindShutdownDelay>(),
            .mountWatching = std::make_shared<MountTableWatch>(context->host.proc),
            .isFolderInMemory = isFolderInMemory,
            .settings = settings};
}

} // namespace ramdisk
