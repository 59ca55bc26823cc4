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
/// It either gives a whole disk or throws and leaves nothing: a step that fails after the allocation releases
/// the device by force, and the caller sees the error of that step, never one of the clean-up. When the
/// process dies on the way, the allocator's next listing cleans up.
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

    /// Whose wish a disk is. The names of startup disks are kept free for them, and for them alone.
    enum class Purpose { requested, startupDisk };

    explicit CreateRamDiskUseCase(Ports ports);

    /// @throws RamDiskError `invalidSpecification`, `allocationFailed`, `formattingFailed`,
    ///         `inventoryUnavailable`, and `notFound` when the finished disk is not listed.
    CreateRamDiskResult execute(RamDiskSpecification specification, Purpose purpose = Purpose::requested);

    /// Everything up to the point where the machine would be changed, and then a description of the rest.
    /// @throws RamDiskError as `execute` would before it allocates.
    [[nodiscard]] Plan plan(RamDiskSpecification specification) const;

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
