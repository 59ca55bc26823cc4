#pragma once

#include "RamDiskCore/Ports/ContentStorageLocating.h"
#include "RamDiskCore/Ports/DiskOrderStoring.h"
#include "RamDiskCore/Ports/PreferencesStoring.h"
#include "RamDiskCore/Ports/ProfileRepository.h"
#include "RamDiskCore/Ports/RedirectRepository.h"
#include "RamDiskCore/Ports/SecretStoring.h"
#include "RamDiskCore/Ports/TemplateRepository.h"
#include "RamDiskCore/Ports/UserDefaultsStoring.h"
#include "RamDiskInfrastructure/Stores/KeeperNoting.h"

#include <filesystem>
#include <functional>
#include <memory>

namespace ramdisk {

/// Everything that is kept between launches. Making it opens no file and starts no thread.
struct PlatformStores {
    /// The folder that holds most of it.
    std::filesystem::path applicationSupport;
    std::shared_ptr<UserDefaultsStoring> defaults;
    std::shared_ptr<PreferencesStoring> preferences;
    std::shared_ptr<DiskOrderStoring> diskOrder;
    std::shared_ptr<ProfileRepository> profiles;
    std::shared_ptr<TemplateRepository> templates;
    std::shared_ptr<RedirectRepository> redirects;
    std::shared_ptr<ContentStorageLocating> contentStorage;
    /// The passphrases of saved contents.
    std::shared_ptr<SecretStoring> secrets;
};

/// Builds the stores in an application support folder, on top of the given user defaults and the platform's
/// own store for secrets.
[[nodiscard]] PlatformStores makeStores(const std::filesystem::path& applicationSupport,
                                        std::shared_ptr<UserDefaultsStoring> defaults,
                                        std::shared_ptr<SecretStoring> secrets,
                                        std::shared_ptr<KeeperNoting> keepers = nullptr);

} // namespace ramdisk
