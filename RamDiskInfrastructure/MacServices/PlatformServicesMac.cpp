#include "RamDiskInfrastructure/Commands/ProcessCommandRunner.h"
#include "RamDiskInfrastructure/MacServices/DeviceNodes.h"
#include "RamDiskInfrastructure/MacServices/ExtendedAttributeVolumeMark.h"
#include "RamDiskInfrastructure/MacServices/FileManagerMountedVolumeListing.h"
#include "RamDiskInfrastructure/MacServices/HomeFolder.h"
#include "RamDiskInfrastructure/MacServices/MachSystemMemoryProvider.h"
#include "RamDiskInfrastructure/MacServices/MediaIDs.h"
#include "RamDiskInfrastructure/MacServices/ProcessFootprintReader.h"
#include "RamDiskInfrastructure/MacServices/URLVolumeStatistics.h"
#include "RamDiskInfrastructure/MacTools/MacAdapters.h"
#include "RamDiskInfrastructure/PlatformServices.h"
#include "RamDiskInfrastructure/Secrets/SecureRandomPassphraseGenerator.h"
#include "RamDiskInfrastructure/Stores/FileProfileRepository.h"

namespace ramdisk {

namespace {

/// The process-wide cache, which outlives everybody.
std::shared_ptr<MediaIdentifying> mediaIDs() {
    return {&sharedMediaIDs(), [](MediaIdentifying*) {}};
}

} // namespace

RamDiskServices makeRamDiskServices(std::function<void(std::string)> /*notice*/) {
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

} // namespace ramdisk
