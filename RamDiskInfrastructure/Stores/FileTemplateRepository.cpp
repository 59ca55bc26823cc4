#include "RamDiskInfrastructure/Stores/FileTemplateRepository.h"

namespace ramdisk {

FileTemplateRepository::FileTemplateRepository(const std::filesystem::path& folder,
                                               std::shared_ptr<UserDefaultsStoring> defaults)
    : file_({folder / "Templates.json", FileLock(folder / "Templates.lock")},
            legacyList("diskTemplates", std::move(defaults))) {}

FileTemplateRepository::List FileTemplateRepository::load() const {
    return file_.load();
}

std::size_t FileTemplateRepository::notUnderstood() const {
    return file_.notUnderstood();
}

void FileTemplateRepository::requireReadable() const {
    file_.requireReadable();
}

void FileTemplateRepository::update(const std::function<List(List)>& transform) {
    file_.update(transform);
}

} // namespace ramdisk
