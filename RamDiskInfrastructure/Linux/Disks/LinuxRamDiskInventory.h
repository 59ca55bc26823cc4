#pragma once

#include "RamDiskCore/Ports/RamDiskInventory.h"
#include "RamDiskInfrastructure/Linux/Disks/LinuxContext.h"

#include <memory>

namespace ramdisk {

/// Lists the disks that have both a record and a volume that the kernel shows. Runs no tool. Heals what a
/// killed process left. Memory volumes of other programs are never listed.
class LinuxRamDiskInventory final : public RamDiskInventory {
public:
    explicit LinuxRamDiskInventory(std::shared_ptr<const LinuxContext> context)
        : context_(std::move(context)) {}

    [[nodiscard]] std::vector<RamDisk> list() override;
    [[nodiscard]] std::vector<RamDisk> listOwn() override;

private:
    enum class Whose { everybodys, own };
    [[nodiscard]] std::vector<RamDisk> list(Whose whose) const;

    std::shared_ptr<const LinuxContext> context_;
};

} // namespace ramdisk
