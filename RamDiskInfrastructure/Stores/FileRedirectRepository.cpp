#include "RamDiskInfrastructure/Stores/FileRedirectRepository.h"

namespace ramdisk {

FileRedirectRepository::FileRedirectRepository(const std::filesystem::path& folder,
                                               std::shared_ptr<TaskScheduling> tasks,
                                               std::shared_ptr<UserDefaultsStoring> defaults)
    : file_({folder / "Folder Redirects.json", FileLock(folder / "Folder Redirects.lock")},
            legacyList("folderRedirects", std::move(defaults))),
      tasks_(std::move(tasks)) {}

FileRedirectRepository::List FileRedirectRepository::load() const {
    return file_.load();
}

bool FileRedirectRepository::isReadable() const {
    return file_.isReadable();
}

std::size_t FileRedirectRepository::notUnderstood() const {
    return file_.notUnderstood();
}

void FileRedirectRepository::save(const List& list) {
    file_.write(list);
}

std::future<void> FileRedirectRepository::update(std::function<void()> body) {
    return file_.lock().withLock(*tasks_, [file = file_, body = std::move(body)] {
        file.clearUp();
        file.migrateIfNeeded();
        body();
    });
}

} // namespace ramdisk
