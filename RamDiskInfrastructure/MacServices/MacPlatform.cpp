#include "RamDiskInfrastructure/Commands/ProcessCommandRunner.h"
#include "RamDiskInfrastructure/MacServices/CFUserDefaults.h"
#include "RamDiskInfrastructure/MacServices/CommandShutdownDelay.h"
#include "RamDiskInfrastructure/MacServices/DeviceNodes.h"
#include "RamDiskInfrastructure/MacServices/ExtendedAttributeVolumeMark.h"
#include "RamDiskInfrastructure/MacServices/FileManagerMountedVolumeListing.h"
#include "RamDiskInfrastructure/MacServices/HomeFolder.h"
#include "RamDiskInfrastructure/MacServices/MachSystemMemoryProvider.h"
#include "RamDiskInfrastructure/MacServices/MediaIDs.h"
#include "RamDiskInfrastructure/MacServices/ProcessFootprintReader.h"
#include "RamDiskInfrastructure/MacServices/SecurityKeychainItems.h"
#include "RamDiskInfrastructure/MacServices/URLVolumeStatistics.h"
#include "RamDiskInfrastructure/MacTools/DittoFolderCopier.h"
#include "RamDiskInfrastructure/MacTools/KeychainSecretStore.h"
#include "RamDiskInfrastructure/MacTools/LaunchdEnvironment.h"
#include "RamDiskInfrastructure/MacTools/MacAdapters.h"
#include "RamDiskInfrastructure/Platform/Platform.h"
#include "RamDiskInfrastructure/Platform/TrustedEnvironment.h"
#include "RamDiskInfrastructure/Redirects/FolderRedirector.h"
#include "RamDiskInfrastructure/Secrets/SecureRandomPassphraseGenerator.h"
#include "RamDiskInfrastructure/Stores/FileProfileRepository.h"

namespace ramdisk {

namespace {

/// The process-wide cache, which outlives everybody.
std::shared_ptr<MediaIdentifying> mediaIDs() {
    return {&sharedMediaIDs(), [](MediaIdentifying*) {}};
}

RamDiskServices makeServices() {
    return makeMacServices(
        {.runner = std::make_shared<ProcessCommandRunner>(),
         .method = RamDeviceAllocator::AttachMethod::diskImages2,
         .privateMounts =
             std::make_shared<PrivateMounts>(homeFolder() / "Library" / "RamDisks", closeDeviceNodes),
         .marks = std::make_shared<ExtendedAttributeVolumeMark>(),
         .media = mediaIDs(),
         .statistics = std::make_shared<URLVolumeStatistics>(),
         .footprints = std::make_shared<ProcessFootprintReader>(),
         .memory = std::make_shared<MachSystemMemoryProvider>(),
         .volumes = std::make_shared<FileManagerMountedVolumeListing>(),
         .passphrases = std::make_shared<SecureRandomPassphraseGenerator>(),
         .startupDisks = std::make_shared<FileProfileRepository>(applicationSupportFolder())});
}

PlatformStores makeMacStores() {
    return makeStores(applicationSupportFolder(), std::make_shared<CFUserDefaults>("com.tavrin.RamDisk"),
                      std::make_shared<KeychainSecretStore>("com.tavrin.RamDisk",
                                                            std::make_unique<SecurityKeychainItems>()));
}

std::shared_ptr<FolderRedirecting> makeFolderRedirecting() {
    return std::make_shared<FolderRedirector>(FolderRedirector::Parts{
        .home = homeFolder(),
        .reserved = {applicationSupportFolder(), homeFolder() / "Library/Preferences",
                     homeFolder() / "Library/RamDisks"},
        .environment = std::make_shared<LaunchdEnvironment>(std::make_shared<ProcessCommandRunner>()),
        .xcode = std::make_shared<PreferenceDomain>(
            std::make_shared<CFUserDefaults>(XcodeDerivedDataRedirector::domain)),
        .copier = std::make_shared<DittoFolderCopier>(std::make_shared<ProcessCommandRunner>()),
        .variables = trustedEnvironmentValue});
}

} // namespace

Platform makePlatform(std::function<void(std::string)> /*notice*/) {
    return {.services = makeServices(),
            .stores = makeMacStores(),
            .redirecting = makeFolderRedirecting(),
            .shutdownDelay = std::make_shared<CommandShutdownDelay>(),
            .mountWatching = nullptr,
            .settings = {}};
}

} // namespace ramdisk
