#include "RamDiskCore/Memory/GetMemoryOverviewUseCase.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace ramdisk {

namespace {

/// What does not fit counts as the largest number.
void add(ByteCount& sum, ByteCount more) {
    sum.bytes += std::min(more.bytes, std::numeric_limits<std::uint64_t>::max() - sum.bytes);
}

} // namespace

GetMemoryOverviewUseCase::GetMemoryOverviewUseCase(std::shared_ptr<const SystemMemoryProviding> memory,
                                                   std::shared_ptr<RamDiskInventory> inventory)
    : memory_(std::move(memory)),
      inventory_(std::move(inventory)) {}

MemoryOverview GetMemoryOverviewUseCase::execute() const {
    MemoryOverview overview;
    overview.system = memory_->read();
    for (const auto& disk : inventory_->list()) {
        ++overview.ramDiskCount;
        add(overview.reservedByRamDisks, disk.capacity);
        add(overview.usedByRamDisks, disk.memoryFootprint.value_or(ByteCount{0}));
    }
    return overview;
}

} // namespace ramdisk
