#include "RamDiskInfrastructure/Stores/FileProfileRepository.h"

namespace ramdisk {

FileProfileRepository::FileProfileRepository(const std::filesystem::path& folder,
                                             std::shared_ptr<UserDefaultsStoring> defaults)
    : file_({folder / "Startup Disks.json", FileLock(folder / "Startup Disks.lock")},
            legacyList("startupProfiles", std::move(defaults))) {}

FileProfileRepository::List FileProfileRepository::load() const {
    return file_.load();
}

std::size_t FileProfileRepository::notUnderstood() const {
    return file_.notUnderstood();
}

bool FileProfileRepository::isReadable() const {
    return file_.isReadable();
}

void FileProfileRepository::requireReadable() const {
    file_.requireReadable();
}

void FileProfileRepository::update(const std::function<List(List)>& transform) {
    file_.update(transform);
}

std::set<std::string> FileProfileRepository::startupDiskNames() const {
    std::set<std::string> names;
    for (const auto& profile : load()) {
        names.insert(profile.name);
    }
    return names;
}

} // namespace ramdisk
