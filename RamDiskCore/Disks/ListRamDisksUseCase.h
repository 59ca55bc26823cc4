#pragma once

#include "RamDiskCore/Ports/RamDiskInventory.h"
#include "RamDiskCore/Values/RamDiskReference.h"

#include <memory>
#include <vector>

namespace ramdisk {

/// Lists the RAM disks, and finds the one that a user names.
class ListRamDisksUseCase {
public:
    explicit ListRamDisksUseCase(std::shared_ptr<RamDiskInventory> inventory);

    /// @throws RamDiskError `inventoryUnavailable`
    [[nodiscard]] std::vector<RamDisk> list() const;

    /// Only the disks of this user.
    /// @throws RamDiskError `inventoryUnavailable`
    [[nodiscard]] std::vector<RamDisk> listOwn() const;

    /// The one disk that `reference` names, in a fresh list.
    /// @throws RamDiskError `notFound`, `ambiguousReference`, `inventoryUnavailable`
    [[nodiscard]] RamDisk resolve(const RamDiskReference& reference) const;

private:
    std::shared_ptr<RamDiskInventory> inventory_;
};

} // namespace ramdisk
