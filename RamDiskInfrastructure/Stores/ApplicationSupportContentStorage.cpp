#include "RamDiskInfrastructure/Stores/ApplicationSupportContentStorage.h"

#include "RamDiskInfrastructure/Stores/FileLock.h"

namespace ramdisk {

namespace {

FileLock lockIn(const std::filesystem::path& folder, const UUID& profile) {
    return FileLock(folder / (profile.text() + ".lock"));
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

} // namespace ramdisk
