#pragma once

#include "RamDiskCore/Ports/RedirectRepository.h"
#include "RamDiskInfrastructure/Stores/LockedJSONFile.h"
#include "RamDiskInfrastructure/Tasks/TaskScheduling.h"

#include <cstddef>
#include <filesystem>
#include <memory>

namespace ramdisk {

/// Keeps the folder redirects in "Folder Redirects.json". Opens no file before it is used.
class FileRedirectRepository final : public RedirectRepository {
public:
    /// @param tasks runs the bodies of updates. Must outlive the futures.
    /// @param defaults where earlier versions kept the list; null where there were none.
    FileRedirectRepository(const std::filesystem::path& folder, std::shared_ptr<TaskScheduling> tasks,
                           std::shared_ptr<UserDefaultsStoring> defaults = nullptr);

    [[nodiscard]] List load() const override;
    [[nodiscard]] bool isReadable() const override;
    [[nodiscard]] std::size_t notUnderstood() const override;
    void save(const List& list) override;
    [[nodiscard]] std::future<void> update(std::function<void()> body) override;

private:
    LockedJSONFile<FolderRedirect> file_;
    std::shared_ptr<TaskScheduling> tasks_;
};

} // namespace ramdisk
