#include "RamDiskInfrastructure/MacTools/HostMemory.h"

#include <algorithm>
#include <limits>

namespace ramdisk {

namespace {

constexpr auto largest = std::numeric_limits<std::uint64_t>::max();

std::uint64_t saturatingProduct(std::uint64_t left, std::uint64_t right) {
    return right != 0 && left > largest / right ? largest : left * right;
}

std::uint64_t saturatingSum(std::uint64_t left, std::uint64_t right) {
    return left > largest - right ? largest : left + right;
}

MemoryPressureLevel pressureLevel(std::optional<std::int32_t> level) {
    if (level.value_or(0) >= 4) {
        return MemoryPressureLevel::critical;
    }
    return level.value_or(0) >= 2 ? MemoryPressureLevel::warning : MemoryPressureLevel::normal;
}

} // namespace

SystemMemory systemMemory(const HostMemoryReading& reading) {
    SystemMemory memory;
    memory.physical = ByteCount{reading.physicalBytes};
    memory.available = memory.physical;
    if (!reading.pages) {
        return memory;
    }
    const auto& pages = *reading.pages;
    const auto appPages = pages.internal - std::min(pages.internal, pages.purgeable);
    const auto app = saturatingProduct(appPages, reading.pageSize);
    memory.wired = ByteCount{saturatingProduct(pages.wired, reading.pageSize)};
    memory.compressed = ByteCount{saturatingProduct(pages.compressor, reading.pageSize)};
    const auto used = saturatingSum(saturatingSum(app, memory.wired.bytes), memory.compressed.bytes);
    memory.available = ByteCount{reading.physicalBytes - std::min(reading.physicalBytes, used)};
    memory.swapUsed = ByteCount{reading.swapUsedBytes.value_or(0)};
    memory.swapOuts = pages.swapOuts;
    memory.pressure = pressureLevel(reading.pressureLevel);
    return memory;
}

} // namespace ramdisk
