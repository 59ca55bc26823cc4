#include "RamDiskInfrastructure/Stores/ApplicationSupportContentStorage.h"

#include "RamDiskCore/Values/Text.h"
#include "RamDiskInfrastructure/Stores/FileLock.h"
#include "RamDiskInfrastructure/Stores/StoredFile.h"

namespace ramdisk {

namespace {

FileLock lockIn(const std::filesystem::path& folder, const UUID& profile) {
    return FileLock(folder / (profile.text() + ".lock"));
}

std::optional<UUID> storedIdentifier(const std::filesystem::path& file) {
    const auto text = readStoredFile(file);
    return text ? UUID::parse(trimmed(*text)) : std::nullopt;
}

void storeIdentifier(const std::filesystem::path& file, const UUID& identifier) {
    makeFolders(file.parent_path());
    removeAbandonedVersions(file);
    PreparedFile(file, identifier.text()).takePlace();
}

} // namespace

ApplicationSupportContentStorage::ApplicationSupportContentStorage(const std::filesystem::path& folder,
                                                                   std::shared_ptr<TaskScheduling> tasks)
    : directory_(folder / "Saved Contents"),
      tasks_(std::move(tasks)) {}

std::filesystem::path ApplicationSupportContentStorage::imageLocation(const UUID& profile) const {
    return directory_ / (profile.text() + ".sparseimage");
}

std::filesystem::path ApplicationSupportContentStorage::unfinishedResizes() const {
    return directory_ / "Unfinished Resizes";
}

std::future<void> ApplicationSupportContentStorage::withLock(const UUID& profile,
                                                             std::function<void()> body) const {
    return lockIn(directory_, profile).withLock(*tasks_, std::move(body));
}

bool ApplicationSupportContentStorage::isLocked(const UUID& profile) const {
    return lockIn(directory_, profile).isHeld();
}

std::future<void> ApplicationSupportContentStorage::withResizeLock(const UUID& profile,
                                                                   std::function<void()> body) const {
    return lockIn(unfinishedResizes(), profile).withLock(*tasks_, std::move(body));
}

bool ApplicationSupportContentStorage::isResizeLocked(const UUID& profile) const {
    return lockIn(unfinishedResizes(), profile).isHeld();
}

std::optional<UUID> ApplicationSupportContentStorage::boundInstance(const UUID& profile) const {
    return storedIdentifier(directory_ / (profile.text() + ".bound"));
}

void ApplicationSupportContentStorage::bind(const UUID& profile, const UUID& instance) {
    storeIdentifier(directory_ / (profile.text() + ".bound"), instance);
}

std::optional<UUID> ApplicationSupportContentStorage::instanceBeingFilled(const UUID& profile) const {
    return storedIdentifier(directory_ / (profile.text() + ".filling"));
}

void ApplicationSupportContentStorage::setInstanceBeingFilled(const UUID& profile,
                                                              const std::optional<UUID>& instance) {
    const auto file = directory_ / (profile.text() + ".filling");
    if (instance) {
        storeIdentifier(file, *instance);
    } else {
        std::filesystem::remove(file);
    }
}

} // namespace ramdisk
