#pragma once

#include "RamDiskCore/Values/ByteCount.h"
#include "RamDiskCore/Values/SystemMemory.h"

#include <cstdint>

namespace ramdisk {

/// The machine's memory, and how much of it the RAM disks take.
struct MemoryOverview {
    SystemMemory system;
    std::int64_t ramDiskCount = 0;
    /// The disks' capacities: what they may grow to.
    ByteCount reservedByRamDisks;
    /// The disks' footprints: what they hold now.
    ByteCount usedByRamDisks;

    /// What everything else uses, never less than the kernel's own share.
    [[nodiscard]] ByteCount withoutRamDisks() const;

    friend bool operator==(const MemoryOverview&, const MemoryOverview&) = default;
};

} // namespace ramdisk
