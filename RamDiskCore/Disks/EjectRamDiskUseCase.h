#pragma once

#include "RamDiskCore/Disks/BatchEjectResult.h"
#include "RamDiskCore/Ports/RamDeviceAllocating.h"
#include "RamDiskCore/Ports/RamDiskInventory.h"

#include <memory>

namespace ramdisk {

/// Ejects disks: removes the volume and gives back its memory. If files are to be saved first, the caller
/// saves them.
class EjectRamDiskUseCase {
public:
    EjectRamDiskUseCase(std::shared_ptr<RamDeviceAllocating> allocator,
                        std::shared_ptr<RamDiskInventory> inventory);

    /// Ejects exactly `disk`. A newer disk that got the same device name meanwhile is left alone.
    /// @throws RamDiskError `ejectFailed`, `notFound`, `inventoryUnavailable`
    ReleaseOutcome eject(const RamDisk& disk, Force force);

    /// Ejects every disk of the caller that this system made, one after another in list order. A failure of
    /// one disk never stops the others.
    /// @throws RamDiskError `inventoryUnavailable`, before any disk was touched.
    BatchEjectResult ejectAll(Force force);

private:
    std::shared_ptr<RamDeviceAllocating> allocator_;
    std::shared_ptr<RamDiskInventory> inventory_;
};

} // namespace ramdisk
