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

/// Everything that is read to compute the machine's memory.
struct HostMemoryReading {
    std::uint64_t physicalBytes = 0;
    std::uint64_t pageSize = 0;
    /// Absent when the kernel did not answer.
    std::optional<HostMemoryPages> pages;
    std::optional<std::uint64_t> swapUsedBytes;
    /// The kernel's own number: 1 normal, 2 warning, 4 critical.
    std::optional<std::int32_t> pressureLevel;
};

/// The reading in bytes. Sums and products that do not fit into 64 bits become the largest number, so that
/// nothing is reported as available then. Without `pages` everything is available and the pressure is normal.
[[nodiscard]] SystemMemory systemMemory(const HostMemoryReading& reading);

} // namespace ramdisk
