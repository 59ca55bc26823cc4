#pragma once

#include "RamDiskInfrastructure/Linux/Disks/LinuxContext.h"
#include "RamDiskInfrastructure/Stores/KeeperNoting.h"

#include <memory>
#include <utility>

namespace ramdisk {

/// Has the disks' own records remember it.
class RecordedKeepers final : public KeeperNoting {
public:
    explicit RecordedKeepers(std::shared_ptr<const LinuxContext> context) : context_(std::move(context)) {}

    void note(const UUID& instance, const std::filesystem::path& folder) noexcept override;
    [[nodiscard]] std::optional<std::filesystem::path> folderOf(const UUID& instance) const override;

private:
    std::shared_ptr<const LinuxContext> context_;
};

} // namespace ramdisk
