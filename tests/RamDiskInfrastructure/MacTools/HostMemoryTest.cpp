#include "RamDiskInfrastructure/MacTools/HostMemory.h"

#include "RamDiskInfrastructure/MacTools/MacFormat.h"
#include "RamDiskInfrastructure/MacTools/VolumeMarkAccessing.h"
#include "RamDiskInfrastructure/MacTools/VolumeStatisticsReading.h"
#include "tests/support/Testing.h"

namespace ramdisk::test {
namespace {

constexpr std::uint64_t largest = 18446744073709551615U;

TEST(HostMemory, PagesBecomeBytesAndASilentKernelMeansAllAvailable) {
    const auto memory = systemMemory({.physicalBytes = 16384000,
                                      .pageSize = 16384,
                                      .pages = HostMemoryPages{100, 50, 7, 200, 300},
                                      .swapUsedBytes = 4096,
                                      .pressureLevel = 2});
    EXPECT_EQ(memory,
              (SystemMemory{ByteCount{16384000}, ByteCount{16384000 - 550 * 16384}, ByteCount{100 * 16384},
                            ByteCount{200 * 16384}, ByteCount{4096}, 7, MemoryPressureLevel::warning}));
    SystemMemory silent;
    silent.physical = silent.available = ByteCount{4096};
    EXPECT_EQ(systemMemory({4096, 16384, std::nullopt, 1024, 4}), silent);
}

TEST(HostMemory, AvailableNeverGoesBelowZeroNorAroundTheCorner) {
    const std::pair<HostMemoryPages, std::uint64_t> rows[] = {
        {{.wired = 0, .purgeable = 9, .swapOuts = 0, .compressor = 0, .internal = 5}, 100},
        {{.wired = 101, .purgeable = 0, .swapOuts = 0, .compressor = 0, .internal = 0}, 0},
        {{.wired = largest, .purgeable = 0, .swapOuts = 0, .compressor = 1, .internal = 1}, 0},
        {{.wired = largest - 1, .purgeable = 0, .swapOuts = 0, .compressor = 2, .internal = largest}, 0},
        {{.wired = 40, .purgeable = 0, .swapOuts = 0, .compressor = 30, .internal = 20}, 10},
    };
    for (const auto& [pages, available] : rows) {
        EXPECT_EQ(systemMemory({100, 1, pages, {}, {}}).available.bytes, available);
    }
    EXPECT_EQ(systemMemory({100, 16384, HostMemoryPages{.wired = largest / 2}, {}, {}}).wired.bytes, largest);
}

TEST(HostMemory, PressureFollowsTheKernelsNumber) {
    using Level = MemoryPressureLevel;
    const std::pair<std::optional<std::int32_t>, Level> rows[] = {
        {std::nullopt, Level::normal}, {1, Level::normal}, {3, Level::warning}, {4, Level::critical}};
    for (const auto& [level, expected] : rows) {
        EXPECT_EQ(systemMemory({4096, 1, HostMemoryPages{}, {}, level}).pressure, expected);
    }
}

TEST(VolumeFacts, MountTypesAndMarksAreRead) {
    using Names = CaseSensitivity;
    const auto ofType = [](const char* type, Names names = Names::insensitive,
                           Journaling journaling = Journaling::off) {
        return fileSystemOfMountType(type, names, journaling);
    };
    EXPECT_EQ(ofType("apfs"), FileSystem::apfs);
    EXPECT_EQ(ofType("apfs", Names::sensitive), FileSystem::apfsCaseSensitive);
    EXPECT_EQ(ofType("hfs", Names::insensitive, Journaling::on), FileSystem::journaledHFSPlus);
    EXPECT_EQ(ofType("hfs"), FileSystem::hfsPlus);
    EXPECT_EQ(ofType("hfs", Names::sensitive, Journaling::on), std::nullopt);
    EXPECT_EQ(ofType("exfat"), FileSystem::exFAT);
    EXPECT_EQ(ofType("msdos"), FileSystem::fat32);
    EXPECT_EQ(ofType("nfs"), std::nullopt);

    const auto instance = UUID::random();
    EXPECT_EQ(markReading(std::nullopt), (VolumeMark::Reading{false, std::nullopt}));
    EXPECT_EQ(markReading(instance.text()), (VolumeMark::Reading{true, instance}));
    EXPECT_EQ(markReading(instance.text() + "\n"), (VolumeMark::Reading{true, std::nullopt}));
}

} // namespace
} // namespace ramdisk::test
