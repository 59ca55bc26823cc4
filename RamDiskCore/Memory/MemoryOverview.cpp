#include "RamDiskCore/Memory/MemoryOverview.h"

#include <algorithm>

namespace ramdisk {

ByteCount MemoryOverview::withoutRamDisks() const {
    if (system.physical <= system.available) {
        return ByteCount{0};
    }
    const auto inUse = system.physical.bytes - system.available.bytes;
    // Compared by subtraction, since the sum of the two may overflow.
    const auto wired = std::min(system.wired.bytes, inUse);
    const auto kernelShare = wired + std::min(system.compressed.bytes, inUse - wired);
    const auto besidesKernel = inUse - kernelShare;
    return ByteCount{kernelShare + besidesKernel - std::min(besidesKernel, usedByRamDisks.bytes)};
}

} // namespace ramdisk
