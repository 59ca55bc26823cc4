#pragma once

#include "RamDiskCore/Ports/TemplateRepository.h"
#include "RamDiskInfrastructure/Stores/LockedJSONFile.h"

#include <cstddef>
#include <filesystem>
#include <memory>

namespace ramdisk {

/// Keeps the user's templates in "Templates.json". Opens no file before it is used.
class FileTemplateRepository final : public TemplateRepository {
public:
    /// @param defaults where earlier versions kept the list; null where there were none.
    explicit FileTemplateRepository(const std::filesystem::path& folder,
                                    std::shared_ptr<UserDefaultsStoring> defaults = nullptr);

    [[nodiscard]] List load() const override;
    [[nodiscard]] std::size_t notUnderstood() const override;
    void requireReadable() const override;
    void update(const std::function<List(List)>& transform) override;

private:
    LockedJSONFile<DiskTemplate> file_;
};

} // namespace ramdisk
