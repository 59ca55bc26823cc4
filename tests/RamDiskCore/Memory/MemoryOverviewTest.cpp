#include "RamDiskCore/Memory/GetMemoryOverviewUseCase.h"
#include "tests/support/FakeMachine.h"
#include "tests/support/Testing.h"

namespace ramdisk::test {
namespace {

constexpr auto largest = std::numeric_limits<std::uint64_t>::max();

TEST(MemoryOverviewTest, WhatIsInUseWithoutDisksIsNeverLessThanTheKernelsShare) {
    const struct {
        std::uint64_t physical, available, wired, compressed, usedByDisks, expected;
    } rows[] = {{100, 40, 10, 5, 20, 40},      {100, 40, 10, 5, 45, 15}, {100, 40, 10, 5, 46, 15},
                {100, 40, 10, 5, largest, 15}, {100, 40, 50, 30, 0, 60}, {100, 40, largest, largest, 10, 60},
                {100, 100, 10, 5, 20, 0},      {100, 120, 10, 5, 0, 0}};
    for (const auto& row : rows) {
        MemoryOverview overview;
        overview.system.physical.bytes = row.physical;
        overview.system.available.bytes = row.available;
        overview.system.wired.bytes = row.wired;
        overview.system.compressed.bytes = row.compressed;
        overview.usedByRamDisks.bytes = row.usedByDisks;
        EXPECT_EQ(overview.withoutRamDisks().bytes, row.expected);
    }
}

TEST(GetMemoryOverviewUseCaseTest, AddsUpTheDisks) {
    const auto machine = std::make_shared<test::FakeMachine>();
    const GetMemoryOverviewUseCase useCase(machine, machine);
    EXPECT_EQ(useCase.execute(), (MemoryOverview{machine->memory, 0, ByteCount{0}, ByteCount{0}}));

    machine->attach(4, "Known").memoryFootprint = ByteCount{5};
    machine->attach(5, "Unknown").capacity = ByteCount{7};
    EXPECT_EQ(useCase.execute(),
              (MemoryOverview{machine->memory, 2, ByteCount{1073741824 + 7}, ByteCount{5}}));

    machine->listingFailure = RamDiskError::InventoryUnavailable{"no list"};
    EXPECT_THROW((void)useCase.execute(), RamDiskError);
}

} // namespace
} // namespace ramdisk::test
