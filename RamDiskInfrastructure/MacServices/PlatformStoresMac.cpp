#include "RamDiskInfrastructure/MacServices/CFUserDefaults.h"
#include "RamDiskInfrastructure/MacServices/HomeFolder.h"
#include "RamDiskInfrastructure/MacServices/SecurityKeychainItems.h"
#include "RamDiskInfrastructure/MacTools/KeychainSecretStore.h"
#include "RamDiskInfrastructure/PlatformStores.h"

namespace ramdisk {

PlatformStores makePlatformStores() {
    return makeStores(applicationSupportFolder(), std::make_shared<CFUserDefaults>("com.tavrin.RamDisk"));
}

std::shared_ptr<SecretStoring> makeSecretStore(const std::filesystem::path& /*applicationSupport*/,
                                               std::shared_ptr<UserDefaultsStoring> /*defaults*/) {
    return std::make_shared<KeychainSecretStore>("com.tavrin.RamDisk",
                                                 std::make_unique<SecurityKeychainItems>());
}

} // namespace ramdisk
