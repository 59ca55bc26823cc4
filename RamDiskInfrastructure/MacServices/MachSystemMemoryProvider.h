#pragma once

#include "RamDiskCore/Ports/SystemMemoryProviding.h"

namespace ramdisk {

/// The machine's memory as the Mach kernel counts it.
class MachSystemMemoryProvider final : public SystemMemoryProviding {
public:
    [[nodiscard]] SystemMemory read() const override;
};

} // namespace ramdisk
