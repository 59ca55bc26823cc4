#include "RamDiskCore/Startup/ManageProfilesUseCase.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskCore/Values/Text.h"

#include <algorithm>
#include <exception>
#include <optional>
#include <stdexcept>
#include <utility>
#include <variant>

namespace ramdisk {

namespace {

/// Leaves those profiles that are not in the list.
void eraseListed(std::vector<UUID>& owners, const ProfileRepository::List& list) {
    std::erase_if(owners, [&list](const UUID& owner) {
        return std::any_of(list.begin(), list.end(),
                           [&owner](const RamDiskProfile& profile) { return profile.id == owner; });
    });
}

} // namespace

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

void ManageProfilesUseCase::requireReadable() const {
    repository_->requireReadable();
}

std::optional<RamDiskProfile> ManageProfilesUseCase::named(std::string_view name) const {
    requireReadable();
    for (auto& profile : repository_->load()) {
        if (namesEqual(profile.name, name)) {
            return std::move(profile);
        }
    }
    return std::nullopt;
}

void ManageProfilesUseCase::store(const RamDiskProfile& profile) {
    requireReadable();
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

void ManageProfilesUseCase::requireKeyStore() const {
    // Nobody's key: what counts is whether the store can be asked.
    static_cast<void>(secrets_->read(UUID::random().text()));
}

void ManageProfilesUseCase::store(const RamDiskProfile& profile, const RamDisk& disk) {
    const auto list = repository_->load();
    const bool wasKept = std::any_of(list.begin(), list.end(), [&profile](const RamDiskProfile& former) {
        return former.id == profile.id && former.keepsContents;
    });
    if (profile.keepsContents && profile.isEncrypted && !wasKept) {
        requireKeyStore();
    }
    store(profile);
    if (profile.keepsContents && disk.instance && !storage_->boundInstance(profile.id)) {
        storage_->setUnsavedInstance(profile.id, disk.instance);
    }
}

void ManageProfilesUseCase::takeUpCopies(RamDiskProfile& profile, const RamDisk& disk) const {
    auto owners = disk.instance ? storage_->ownersOf(*disk.instance) : std::vector<UUID>{};
    eraseListed(owners, repository_->load());
    if (owners.empty()) {
        return;
    }
    if (notUnderstood() > 0) {
        throw RamDiskError(RamDiskError::ContentsTransferFailed{
            "“" + disk.name + "” belongs to a startup disk that this version does not understand."});
    }
    profile.id = owners.front();
    profile.keepsContents = true;
    const auto copies = archiver_->copies({storage_->imageLocation(profile.id)}).size();
    profile.previousCopies = std::max(profile.previousCopies, static_cast<std::uint32_t>(copies));
}

std::vector<UUID> ManageProfilesUseCase::lostCopies() const {
    // A record that is not understood may be the one that they belong to.
    if (!isReadable() || notUnderstood() > 0) {
        return {};
    }
    auto owners = storage_->savedProfiles();
    eraseListed(owners, repository_->load());
    return owners;
}

RamDiskProfile ManageProfilesUseCase::profileForLostCopies(const UUID& owner, RamDiskProfile defaults,
                                                           const std::vector<RamDisk>& standing) const {
    requireReadable();
    const auto lost = lostCopies();
    if (std::find(lost.begin(), lost.end(), owner) == lost.end()) {
        throw std::runtime_error("There are no saved files “" + owner.text() + "” without a startup disk.");
    }
    for (const auto& disk : standing) {
        const auto owners = disk.instance ? storage_->ownersOf(*disk.instance) : std::vector<UUID>{};
        if (std::find(owners.begin(), owners.end(), owner) != owners.end()) {
            throw std::runtime_error("“" + disk.name
                                     + "” is mounted and keeps these files. Make that disk a startup disk.");
        }
    }
    const auto copies = archiver_->copies({storage_->imageLocation(owner)});
    if (copies.empty()) {
        throw std::runtime_error("Of the saved files “" + owner.text() + "” only damaged copies are left.");
    }
    std::optional<VolumePassphrase> key;
    std::exception_ptr noKeyStore;
    try {
        key = secrets_->read(owner.text());
    } catch (const std::exception&) {
        traceCaught("keyring",
                    "the copies are read without a key, as those of a disk without encryption are");
        noKeyStore = std::current_exception();
    }
    defaults.id = owner;
    defaults.keepsContents = true;
    defaults.isEncrypted = key.has_value();
    if (defaults.isEncrypted && !supportsEncryption(defaults.fileSystem)) {
        defaults.fileSystem = FileSystem::apfs;
    }
    defaults.previousCopies = std::max(defaults.previousCopies, static_cast<std::uint32_t>(copies.size()));
    try {
        const auto saved = archiver_->describe(
            copies.front().image,
            key ? VolumeProtection{VolumeProtection::Encrypted{std::move(*key)}} : VolumeProtection{});
        if (saved.openAt) {
            throw RamDiskError(RamDiskError::ImageOpenAlready{});
        }
        defaults.name = saved.name;
        defaults.size = saved.capacity;
    } catch (const RamDiskError& error) {
        if (std::holds_alternative<RamDiskError::IncorrectPassphrase>(error.value())
            && !defaults.isEncrypted) {
            if (noKeyStore) {
                std::rethrow_exception(noKeyStore);
            }
            throw RamDiskError(RamDiskError::SavedContentsKeyMissing{owner.text()});
        }
        throw;
    }
    return defaults;
}

bool ManageProfilesUseCase::hasCopies(const RamDiskProfile& profile) const {
    const auto saved = storage_->savedProfiles();
    return std::find(saved.begin(), saved.end(), profile.id) != saved.end();
}

void ManageProfilesUseCase::remove(const RamDiskProfile& profile) {
    requireReadable();
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
