#pragma once

#include "RamDiskCore/Ports/Port.h"
#include "RamDiskCore/Values/SystemMemory.h"

namespace ramdisk {

/// Reads how the machine's memory is used.
class SystemMemoryProviding : public Port {
public:
    /// The memory as it is now. Cannot fail: what cannot be read falls back to zero, to normal pressure, and
    /// to all memory being available.
    [[nodiscard]] virtual SystemMemory read() const = 0;
};

} // namespace ramdisk
