#pragma once

#include "RamDiskCore/Ports/Port.h"
#include "RamDiskCore/Values/ByteCount.h"

#include <cstdint>
#include <optional>

namespace ramdisk {

/// Tells how much memory a process holds.
class ProcessFootprintReading : public Port {
public:
    /// Absent when the process is gone or may not be looked at.
    [[nodiscard]] virtual std::optional<ByteCount> footprint(std::int32_t processID) const = 0;
};

} // namespace ramdisk
