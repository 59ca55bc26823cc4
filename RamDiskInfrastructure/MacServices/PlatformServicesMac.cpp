#include "RamDiskInfrastructure/Commands/ProcessCommandRunner.h"
#include "RamDiskInfrastructure/MacServices/DeviceNodes.h"
#include "RamDiskInfrastructure/MacServices/ExtendedAttributeVolumeMark.h"
#include "RamDiskInfrastructure/MacServices/FileManagerMountedVolumeListing.h"
#include "RamDiskInfrastructure/MacServices/MachSystemMemoryProvider.h"
#include "RamDiskInfrastructure/MacServices/MediaIDs.h"
#include "RamDiskInfrastructure/MacServices/ProcessFootprintReader.h"
#include "RamDiskInfrastructure/MacServices/URLVolumeStatistics.h"
#include "RamDiskInfrastructure/MacTools/MacAdapters.h"
#include "RamDiskInfrastructure/PlatformServices.h"
#include "RamDiskInfrastructure/Secrets/SecureRandomPassphraseGenerator.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

namespace ramdisk {

namespace {

/// HOME where it is set, as everything else of the session sees it; else the account's folder.
std::filesystem::path homeFolder() {
    const char* const home = std::getenv("HOME");
    if (home != nullptr && *home != '\0') {
        if (*home != '/') {
            throw std::runtime_error("HOME is not an absolute path.");
        }
        return home;
    }
    const auto* const account = ::getpwuid(::getuid());
    if (account == nullptr || account->pw_dir == nullptr) {
        throw std::runtime_error("This account has no home folder.");
    }
    return account->pw_dir;
}

/// The process-wide cache, which outlives everybody.
std::shared_ptr<MediaIdentifying> mediaIDs() {
    return {&sharedMediaIDs(), [](MediaIdentifying*) {}};
}

} // namespace

RamDiskServices makeRamDiskServices(std::function<void(std::string)> /*notice*/) {
    return makeMacServices({.runner = std::make_shared<ProcessCommandRunner>(),
                            .method = RamDeviceAllocator::AttachMethod::diskImages2,
                            .privateMounts = std::make_shared<PrivateMounts>(
                                homeFolder() / "Library" / "RamDisks", closeDeviceNodes),
                            .marks = std::make_shared<ExtendedAttributeVolumeMark>(),
                            .media = mediaIDs(),
                            .statistics = std::make_shared<URLVolumeStatistics>(),
                            .footprints = std::make_shared<ProcessFootprintReader>(),
                            .memory = std::make_shared<MachSystemMemoryProvider>(),
                            .volumes = std::make_shared<FileManagerMountedVolumeListing>(),
                            .passphrases = std::make_shared<SecureRandomPassphraseGenerator>()});
}

} // namespace ramdisk
