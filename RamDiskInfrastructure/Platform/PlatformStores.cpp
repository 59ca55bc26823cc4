#include "RamDiskInfrastructure/Platform/PlatformStores.h"

#include "RamDiskInfrastructure/Stores/ApplicationSupportContentStorage.h"
#include "RamDiskInfrastructure/Stores/FileProfileRepository.h"
#include "RamDiskInfrastructure/Stores/FileRedirectRepository.h"
#include "RamDiskInfrastructure/Stores/FileTemplateRepository.h"
#include "RamDiskInfrastructure/Stores/PreferencesDefaults.h"
#include "RamDiskInfrastructure/Stores/UserDefaultsDiskOrderStore.h"
#include "RamDiskInfrastructure/Tasks/TaskPool.h"

#include <utility>

namespace ramdisk {

PlatformStores makeStores(const std::filesystem::path& applicationSupport,
                          std::shared_ptr<UserDefaultsStoring> defaults,
                          std::shared_ptr<SecretStoring> secrets, std::shared_ptr<KeeperNoting> keepers) {
    const auto tasks = std::make_shared<TaskPool>();
    PlatformStores stores;
    stores.applicationSupport = applicationSupport;
    stores.preferences = std::make_shared<PreferencesDefaults>(defaults);
    stores.diskOrder = std::make_shared<UserDefaultsDiskOrderStore>(defaults);
    stores.profiles = std::make_shared<FileProfileRepository>(applicationSupport, defaults);
    stores.templates = std::make_shared<FileTemplateRepository>(applicationSupport, defaults);
    stores.redirects = std::make_shared<FileRedirectRepository>(applicationSupport, tasks, defaults);
    stores.contentStorage =
        std::make_shared<ApplicationSupportContentStorage>(applicationSupport, tasks, std::move(keepers));
    stores.secrets = std::move(secrets);
    stores.defaults = std::move(defaults);
    return stores;
}

} // namespace ramdisk
