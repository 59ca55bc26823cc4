#pragma once

#include "RamDiskCore/Values/ByteCount.h"
#include "RamDiskCore/Values/SystemMemory.h"

#include <cstdint>

namespace ramdisk {

/// The machine's memory together with what the RAM disks take of it.
struct MemoryOverview {
    SystemMemory system;
    std::int64_t ramDiskCount = 0;
    /// The disks' capacities: what they may grow to.
    ByteCount reservedByRamDisks;
    /// The disks' footprints: what they hold now.
    ByteCount usedByRamDisks;

    /// What is in use by everything else, never less than the kernel's own share.
    [[nodiscard]] ByteCount withoutRamDisks() const;

    friend bool operator==(const MemoryOverview&, const MemoryOverview&) = default;
};

} // namespace ramdisk
