#pragma once

#include "RamDiskCore/Values/ByteCount.h"

#include <cstdint>
#include <optional>

namespace ramdisk {

/// Tells how much memory a process holds.
class ProcessFootprintReading {
public:
    ProcessFootprintReading() = default;
    ProcessFootprintReading(const ProcessFootprintReading&) = delete;
    ProcessFootprintReading& operator=(const ProcessFootprintReading&) = delete;
    virtual ~ProcessFootprintReading() = default;

    /// Absent when the process is gone or may not be looked at.
    [[nodiscard]] virtual std::optional<ByteCount> footprint(std::int32_t processID) const = 0;
};

} // namespace ramdisk
