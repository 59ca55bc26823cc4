#pragma once

#include "RamDiskCore/Ports/ProfileRepository.h"
#include "RamDiskCore/Ports/StartupDiskNaming.h"
#include "RamDiskInfrastructure/Stores/LockedJSONFile.h"

#include <cstddef>
#include <filesystem>
#include <memory>

namespace ramdisk {

/// Keeps the startup disks in "Startup Disks.json". Opens no file before it is used.
class FileProfileRepository final : public ProfileRepository, public StartupDiskNaming {
public:
    /// @param defaults where earlier versions kept the list; null where there were none.
    explicit FileProfileRepository(const std::filesystem::path& folder,
                                   std::shared_ptr<UserDefaultsStoring> defaults = nullptr);

    [[nodiscard]] List load() const override;
    [[nodiscard]] std::size_t notUnderstood() const override;
    [[nodiscard]] bool isReadable() const override;
    void requireReadable() const override;
    void update(const std::function<List(List)>& transform) override;
    [[nodiscard]] std::set<std::string> startupDiskNames() const override;

private:
    LockedJSONFile<RamDiskProfile> file_;
};

} // namespace ramdisk
