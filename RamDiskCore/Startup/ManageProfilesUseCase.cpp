#include "RamDiskCore/Startup/ManageProfilesUseCase.h"

#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskCore/Values/Text.h"

#include <algorithm>

namespace ramdisk {

ManageProfilesUseCase::ManageProfilesUseCase(std::shared_ptr<ProfileRepository> repository,
                                             std::shared_ptr<ContentStorageLocating> storage,
                                             std::shared_ptr<SecretStoring> secrets,
                                             std::shared_ptr<ContentArchiving> archiver)
    : repository_(std::move(repository)),
      storage_(std::move(storage)),
      secrets_(std::move(secrets)),
      archiver_(std::move(archiver)) {}

std::vector<RamDiskProfile> ManageProfilesUseCase::list() const {
    return repository_->load();
}

bool ManageProfilesUseCase::isReadable() const {
    return repository_->isReadable();
}

std::optional<RamDiskProfile> ManageProfilesUseCase::named(std::string_view name) const {
    for (auto& profile : repository_->load()) {
        if (namesEqual(profile.name, name)) {
            return std::move(profile);
        }
    }
    return std::nullopt;
}

void ManageProfilesUseCase::store(const RamDiskProfile& profile) {
    repository_->update([&profile](ProfileRepository::List list) {
        const bool isTaken = std::any_of(list.begin(), list.end(), [&profile](const RamDiskProfile& other) {
            return other.id != profile.id && namesEqual(other.name, profile.name);
        });
        if (isTaken) {
            throw RamDiskError(
                RamDiskError::InvalidSpecification{{{ValidationIssue::NameOfStartupDisk{profile.name}}}});
        }
        const auto former = std::find_if(list.begin(), list.end(), [&profile](const RamDiskProfile& other) {
            return other.id == profile.id;
        });
        if (former == list.end()) {
            list.push_back(profile);
        } else {
            *former = profile;
        }
        return list;
    });
}

void ManageProfilesUseCase::store(const RamDiskProfile& profile, const RamDisk& disk) {
    store(profile);
    if (profile.keepsContents && disk.instance && !storage_->boundInstance(profile.id)) {
        storage_->setUnsavedInstance(profile.id, disk.instance);
    }
}

void ManageProfilesUseCase::remove(const RamDiskProfile& profile) {
    storage_
        ->withLock(profile.id,
                   [&] {
                       archiver_->remove({storage_->imageLocation(profile.id)});
                       storage_->setFilling(profile.id, std::nullopt);
                       storage_->setUnsavedInstance(profile.id, std::nullopt);
                       repository_->update([&profile](ProfileRepository::List list) {
                           std::erase_if(list, [&profile](const RamDiskProfile& other) {
                               return other.id == profile.id;
                           });
                           return list;
                       });
                   })
        .get();
    // It may have kept its files earlier.
    if (profile.isEncrypted) {
        secrets_->remove(profile.id.text());
    }
}

} // namespace ramdisk
