#pragma once

#include "RamDiskCore/Ports/RamDiskInventory.h"
#include "RamDiskCore/Ports/VolumeRenaming.h"
#include "RamDiskCore/Validation/ValidationContextProvider.h"
#include "RamDiskCore/Values/ValidationIssue.h"

#include <memory>
#include <string_view>
#include <vector>

namespace ramdisk {

/// Renames an existing disk. The rules for the new name are those for the name of a new disk.
class RenameRamDiskUseCase {
public:
    RenameRamDiskUseCase(std::shared_ptr<VolumeRenaming> renamer, std::shared_ptr<RamDiskInventory> inventory,
                         ValidationContextProvider contextProvider);

    /// The disk as it is listed afterwards.
    /// @throws RamDiskError `notMounted`, `invalidSpecification`, `formattingFailed`, `notFound`,
    ///         `inventoryUnavailable`. Unless it is one of the last two, the disk keeps its name.
    RamDisk execute(const RamDisk& disk, std::string_view newName);

    /// What is wrong with the new name; empty when nothing is.
    [[nodiscard]] std::vector<ValidationIssue> issues(const RamDisk& disk, std::string_view newName) const;

private:
    std::shared_ptr<VolumeRenaming> renamer_;
    std::shared_ptr<RamDiskInventory> inventory_;
    ValidationContextProvider contextProvider_;
};

} // namespace ramdisk
