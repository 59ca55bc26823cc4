#pragma once

#include "RamDiskCore/Memory/MemoryOverview.h"
#include "RamDiskCore/Ports/RamDiskInventory.h"
#include "RamDiskCore/Ports/SystemMemoryProviding.h"

#include <memory>

namespace ramdisk {

/// Combines the machine's memory and the attached disks into one view.
class GetMemoryOverviewUseCase {
public:
    GetMemoryOverviewUseCase(std::shared_ptr<const SystemMemoryProviding> memory,
                             std::shared_ptr<RamDiskInventory> inventory);

    /// A disk whose footprint is unknown adds nothing to the memory in use.
    /// @throws RamDiskError `inventoryUnavailable`
    [[nodiscard]] MemoryOverview execute() const;

private:
    std::shared_ptr<const SystemMemoryProviding> memory_;
    std::shared_ptr<RamDiskInventory> inventory_;
};

} // namespace ramdisk
