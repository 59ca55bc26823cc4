#pragma once

#include "RamDiskCore/Ports/ContentStorageLocating.h"
#include "RamDiskInfrastructure/Stores/KeeperNoting.h"
#include "RamDiskInfrastructure/Tasks/TaskScheduling.h"

#include <memory>

namespace ramdisk {

/// The folder "Saved Contents": an image and a lock file per startup disk, named by its identifier, and the
/// folder "Unfinished Resizes". Folders are made when a lock in them is first taken.
class ApplicationSupportContentStorage final : public ContentStorageLocating {
public:
    /// @param folder the application support folder.
    /// @param tasks runs the bodies under locks. Must outlive the futures.
    /// @param keepers null where disks cannot remember who keeps their files.
    ApplicationSupportContentStorage(const std::filesystem::path& folder,
                                     std::shared_ptr<TaskScheduling> tasks,
                                     std::shared_ptr<KeeperNoting> keepers = nullptr);

    [[nodiscard]] const std::filesystem::path& directory() const noexcept { return directory_; }

    [[nodiscard]] std::filesystem::path imageLocation(const UUID& profile) const override;
    [[nodiscard]] std::filesystem::path unfinishedResizes() const override;
    [[nodiscard]] std::future<void> withLock(const UUID& profile, std::function<void()> body) const override;
    [[nodiscard]] bool isLocked(const UUID& profile) const override;
    [[nodiscard]] std::future<void> withResizeLock(const UUID& profile,
                                                   std::function<void()> body) const override;
    [[nodiscard]] bool isResizeLocked(const UUID& profile) const override;
    [[nodiscard]] std::optional<UUID> boundInstance(const UUID& profile) const override;
    void bind(const UUID& profile, const std::optional<UUID>& instance) override;
    [[nodiscard]] std::optional<Filling> filling(const UUID& profile) const override;
    void setFilling(const UUID& profile, const std::optional<Filling>& filling) override;
    [[nodiscard]] std::optional<UUID> unsavedInstance(const UUID& profile) const override;
    void setUnsavedInstance(const UUID& profile, const std::optional<UUID>& instance) override;
    [[nodiscard]] std::vector<UUID> ownersOf(const UUID& instance) const override;
    [[nodiscard]] std::optional<std::filesystem::path> keptElsewhere(const UUID& instance) const override;
    [[nodiscard]] std::vector<UUID> savedProfiles() const override;

private:
    [[nodiscard]] std::filesystem::path note(const UUID& profile, const char* extension) const;
    /// Has the disk remember that its notes are here.
    void noteKeeper(const UUID& profile, const std::optional<UUID>& instance);

    std::filesystem::path directory_;
    std::shared_ptr<TaskScheduling> tasks_;
    std::shared_ptr<KeeperNoting> keepers_;
};

} // namespace ramdisk
