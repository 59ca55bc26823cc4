#pragma once

#include "RamDiskCore/Values/ByteCount.h"
#include "RamDiskCore/Values/EnumerationTable.h"

#include <cstdint>

namespace ramdisk {

/// How short of memory the operating system is.
enum class MemoryPressureLevel { normal, warning, critical };
template <>
inline constexpr auto enumerators<MemoryPressureLevel> =
    enumerationTable<Named<MemoryPressureLevel>>({{MemoryPressureLevel::normal, "normal"},
                                                  {MemoryPressureLevel::warning, "warning"},
                                                  {MemoryPressureLevel::critical, "critical"}});

/// How the machine's memory is used, at one moment.
struct SystemMemory {
    /// Installed.
    ByteCount physical{};
    /// What the system can hand out now: free memory and file cache.
    ByteCount available{};
    /// Kept by the kernel for itself.
    ByteCount wired{};
    /// Held by the memory compressor.
    ByteCount compressed{};
    ByteCount swapUsed{};
    /// Pages swapped out since boot.
    std::uint64_t swapOuts = 0;
    MemoryPressureLevel pressure = MemoryPressureLevel::normal;

    friend bool operator==(const SystemMemory&, const SystemMemory&) = default;
};

} // namespace ramdisk
