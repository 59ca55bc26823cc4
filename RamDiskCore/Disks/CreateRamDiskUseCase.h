#pragma once

#include "RamDiskCore/Disks/CreateRamDiskResult.h"
#include "RamDiskCore/Ports/PassphraseGenerating.h"
#include "RamDiskCore/Ports/RamDeviceAllocating.h"
#include "RamDiskCore/Ports/RamDiskInventory.h"
#include "RamDiskCore/Ports/SearchIndexControlling.h"
#include "RamDiskCore/Ports/VolumeFormatting.h"
#include "RamDiskCore/Validation/RamDiskSpecificationValidator.h"
#include "RamDiskCore/Validation/ValidationContextProvider.h"
#include "RamDiskCore/Values/RamDiskSpecification.h"

#include <memory>
#include <string>
#include <vector>

namespace ramdisk {

/// Makes a RAM disk: validated, allocated, formatted, mounted, marked and listed.
///
/// It either returns a complete disk, or throws and leaves nothing. When a step after the allocation fails,
/// the device is released by force. The caller sees the error of that step, never one of the clean-up. When
/// the process dies on the way, the allocator's next listing cleans up.
class CreateRamDiskUseCase {
public:
    struct Ports {
        std::shared_ptr<RamDeviceAllocating> allocator;
        std::shared_ptr<VolumeFormatting> formatter;
        std::shared_ptr<RamDiskInventory> inventory;
        std::shared_ptr<SearchIndexControlling> indexing;
        std::shared_ptr<PassphraseGenerating> passphrases;
        ValidationContextProvider contextProvider;
        RamDiskSpecificationValidator validator;
    };

    /// What a creation would do.
    struct Plan {
        std::vector<CreationWarning> warnings;
        /// One step a line, in order.
        std::vector<std::string> steps;
    };

    /// Why a disk is made. The names of startup disks are reserved: only a startup disk may take one.
    enum class Purpose { requested, startupDisk };

    explicit CreateRamDiskUseCase(Ports ports);

    /// @throws RamDiskError `invalidSpecification`, `allocationFailed`, `formattingFailed`,
    ///         `inventoryUnavailable`, and `notFound` when the finished disk is not listed. Nothing else.
    CreateRamDiskResult execute(RamDiskSpecification specification, Purpose purpose = Purpose::requested);

    /// Checks everything that `execute` checks before it changes the machine, then describes the rest.
    /// @throws RamDiskError as `execute` would before it allocates.
    [[nodiscard]] Plan plan(RamDiskSpecification specification) const;

    /// Refuses what this machine cannot make, whether or not the rules allow it.
    /// @throws RamDiskError `formattingFailed`, `allocationFailed`
    void requireSupport(const RamDiskSpecification& specification) const;

private:
    [[nodiscard]] std::vector<CreationWarning> requireValid(RamDiskSpecification& specification,
                                                            Purpose purpose) const;
    [[nodiscard]] CreateRamDiskResult fill(const DeviceIdentifier& device,
                                           const RamDiskSpecification& specification,
                                           const VolumeProtection& protection,
                                           std::vector<CreationWarning> warnings);

    Ports ports_;
};

} // namespace ramdisk
