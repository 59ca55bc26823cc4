#include "RamDiskInfrastructure/Linux/LinuxHost.h"
#include "RamDiskInfrastructure/Linux/Secrets/LinuxSecretStore.h"
#include "RamDiskInfrastructure/Linux/Secrets/SecretServiceStore.h"
#include "RamDiskInfrastructure/PlatformStores.h"
#include "RamDiskInfrastructure/Stores/JSONUserDefaults.h"

#include <utility>

namespace ramdisk {

PlatformStores makePlatformStores() {
    const auto host = LinuxHost::current();
    return makeStores(host.applicationSupport,
                      std::make_shared<JSONUserDefaults>(host.configuration, "com.tavrin.RamDisk"));
}

std::shared_ptr<SecretStoring> makeSecretStore(const std::filesystem::path& applicationSupport,
                                               std::shared_ptr<UserDefaultsStoring> defaults) {
    return std::make_shared<LinuxSecretStore>(
        std::make_unique<SecretServiceStore>("com.tavrin.RamDisk", unlockPromptHere()), applicationSupport,
        std::move(defaults));
}

} // namespace ramdisk
