#pragma once

#include "RamDiskCore/Values/SystemMemory.h"

#include <cstdint>
#include <optional>

namespace ramdisk {

/// What the Mach kernel counts, in pages.
struct HostMemoryPages {
    std::uint64_t wired = 0;
    std::uint64_t purgeable = 0;
    std::uint64_t swapOuts = 0;
    std::uint64_t compressor = 0;
    std::uint64_t internal = 0;
};

/// Everything that a reading of the machine's memory starts from.
struct HostMemoryReading {
    std::uint64_t physicalBytes = 0;
    std::uint64_t pageSize = 0;
    /// Absent when the kernel did not answer.
    std::optional<HostMemoryPages> pages;
    std::optional<std::uint64_t> swapUsedBytes;
    /// The kernel's own number: 1 normal, 2 warning, 4 critical.
    std::optional<std::int32_t> pressureLevel;
};

/// The reading in bytes. Sums and products too large for 64 bits stay at the largest number, so that nothing
/// is then reported as available. Without `pages` everything is available and the pressure is normal.
[[nodiscard]] SystemMemory systemMemory(const HostMemoryReading& reading);

} // namespace ramdisk
