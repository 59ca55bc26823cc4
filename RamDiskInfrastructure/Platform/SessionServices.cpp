#include "RamDiskInfrastructure/Platform/SessionServices.h"

namespace ramdisk {

RamDiskSessionServices makeSessionServices(const RamDiskServices& services, const PlatformStores& stores,
                                           const std::shared_ptr<FolderRedirecting>& redirecting) {
    RamDiskSessionServices session;
    session.core = services;
    session.profiles = std::make_shared<ManageProfilesUseCase>(stores.profiles, stores.contentStorage,
                                                               stores.secrets, services.archiver);
    session.profileContents = std::make_shared<ProfileContentsUseCase>(
        ProfileContentsUseCase::Ports{services.archiver, stores.contentStorage, stores.secrets,
                                      services.passphrases, services.list, stores.profiles});
    session.redirects = std::make_shared<FolderRedirectsUseCase>(
        stores.redirects, redirecting, services.inventory, services.validationContext.profiles);
    session.diskOrder = stores.diskOrder;
    session.configure =
        std::make_shared<ConfigureRamDiskUseCase>(services, session.profiles, session.redirects);
    session.lifecycle = std::make_shared<SessionLifecycleUseCase>(services, session.profiles,
                                                                  session.profileContents, session.redirects);
    session.setUp = std::make_shared<SetUpRamDiskUseCase>(services, session.profiles, session.redirects);
    session.loadSaved =
        std::make_shared<LoadSavedContentsUseCase>(services, session.profileContents, session.redirects);
    session.templates = std::make_shared<DiskTemplatesUseCase>(stores.templates, session.configure);
    return session;
}

} // namespace ramdisk
