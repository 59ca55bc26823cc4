#include "RamDiskInfrastructure/Linux/Host/MountTable.h"
#include "RamDiskInfrastructure/Linux/Host/ProcSystemMemoryProvider.h"
#include "tests/support/Linux/TestMachine.h"

#include <sys/sysmacros.h>

namespace ramdisk::test {
namespace {

TEST(MountTable, ReadsWhatTheKernelWritesAndLeavesOutTheRest) {
    const auto table = MountTable::parse(
        "36 25 0:31 / /media/My\\040Disk\\134\\011\\012 rw,nosuid - tmpfs ramdisk-A\\040B rw,size=8192k\n"
        "37 25 8:1 /sub /mnt rw shared:7 master:2 propagate_from:3 - ext4 /dev/sda1 rw\n"
        "38 25 0:32 / /dash - in - name rw - tmpfs none rw\n"
        "no separator here 0:1 / /x rw tmpfs none rw\n"
        "39 25 x:y / /y rw - tmpfs none rw\n"
        "\n"
        "40 25 0:33 / /short\\04 rw -  \n"
        "41 25 0:31 / /mnt rw - tmpfs last rw");
    const std::vector<MountEntry> expected{
        {36, 25, makedev(0, 31), "/", "/media/My Disk\\\t\n", "tmpfs", "ramdisk-A B", "rw,size=8192k"},
        {37, 25, makedev(8, 1), "/sub", "/mnt", "ext4", "/dev/sda1", "rw"},
        {40, 25, makedev(0, 33), "/", "/short\\04", "", "", ""},
        {41, 25, makedev(0, 31), "/", "/mnt", "tmpfs", "last", "rw"}};
    std::vector<MountEntry> whole;
    for (const auto& entry : table.entries()) {
        if (entry.mountPoint != "/dash") {
            whole.push_back(entry);
        }
    }
    EXPECT_EQ(whole, expected);
    EXPECT_EQ(table.topmostAt("/mnt")->source, "last");
    EXPECT_EQ(table.topmostAt("/media"), nullptr);
    EXPECT_TRUE(table.shows(makedev(8, 1)));
    EXPECT_FALSE(table.shows(makedev(1, 8)));
}

TEST(MountTable, TheTopmostMountIsNotAlwaysTheYoungest) {
    // 50 was made first and later moved on top of 51.
    const auto table = MountTable::parse("50 51 0:40 / /mnt rw - tmpfs above rw\n"
                                         "51 25 0:41 / /mnt rw - tmpfs below rw\n");
    EXPECT_EQ(table.topmostAt("/mnt")->source, "above");
}

struct MemoryCase {
    const char* what;
    std::map<std::string, std::string> files;
    SystemMemory expected;
};

constexpr std::uint64_t kibi = 1024;

SystemMemory memory(std::uint64_t physical, std::uint64_t available, MemoryPressureLevel pressure) {
    SystemMemory value;
    value.physical = {physical * kibi};
    value.available = {available * kibi};
    value.pressure = pressure;
    return value;
}

TEST(SystemMemoryFromProc, ReadsWhatIsThereAndDoesWithoutTheRest) {
    auto full = memory(1000, 400, MemoryPressureLevel::normal);
    full.wired = {(1 + 2 + 4 + 8) * kibi};
    full.compressed = {16 * kibi + 300 + 40};
    full.swapUsed = {70 * kibi};
    full.swapOuts = 99;
    const std::string meminfo =
        "MemTotal:  1000 kB\nMemFree: 1 kB\nMemAvailable:    400 kB\nKernelStack: 1 kB\n"
        "PageTables:\t2 kB\nSecPageTables: 9 kB\nSUnreclaim: 4 kB\nPercpu: 8 kB\nZswap: 16 kB\n"
        "Zswapped: 77 kB\nSwapTotal: 100 kB\nSwapFree: 30 kB\n";
    const auto scarce = [](const char* available) {
        return "MemTotal: 1000 kB\nMemAvailable: " + std::string(available) + " kB\n";
    };
    const auto stalls = [](const char* some, const char* whole) {
        return std::string("some avg10=") + some + " avg60=90.00 avg300=0 total=5\nfull avg10=" + whole
               + " avg60=0.00 avg300=0 total=5\n";
    };
    using Level = MemoryPressureLevel;
    const std::vector<MemoryCase> cases{
        {"everything",
         {{"proc/meminfo", meminfo},
          {"proc/vmstat", "pswpin 3\npswpout 99\n"},
          {"proc/pressure/memory", stalls("9.99", "4.99")},
          {"sys/block/zram0/mm_stat", "  1000 500 300 0 300 0 0 0\n"},
          {"sys/block/zram1/mm_stat", "9 9 40"},
          {"sys/block/zram2/other", ""},
          {"sys/block/sda/mm_stat", "1 2 3000"}},
         full},
        {"some stall",
         {{"proc/meminfo", scarce("900")}, {"proc/pressure/memory", stalls("10.00", "0.00")}},
         memory(1000, 900, Level::warning)},
        {"all stall",
         {{"proc/meminfo", scarce("900")}, {"proc/pressure/memory", stalls("50.00", "5.00")}},
         memory(1000, 900, Level::critical)},
        {"no stalls told, a tenth left", {{"proc/meminfo", scarce("100")}}, memory(1000, 100, Level::normal)},
        {"no stalls told, less", {{"proc/meminfo", scarce("99")}}, memory(1000, 99, Level::warning)},
        {"no stalls told, nearly none", {{"proc/meminfo", scarce("49")}}, memory(1000, 49, Level::critical)},
        {"more available than there is",
         {{"proc/meminfo", scarce("2000")}},
         memory(1000, 1000, Level::normal)},
        {"figures that are none",
         {{"proc/meminfo", "MemTotal: 1000 kB\nMemAvailable: many kB\nSwapFree: 3 kB"},
          {"proc/pressure/memory", "garbage"}},
         memory(1000, 0, Level::normal)},
    };
    for (const auto& row : cases) {
        const test::TestMachine machine;
        for (const auto& [path, text] : row.files) {
            fs::create_directories((machine.folder() / path).parent_path());
            test::writeFile(machine.folder() / path, text);
        }
        EXPECT_EQ(ProcSystemMemoryProvider(machine.folder() / "proc", machine.folder() / "sys").read(),
                  row.expected)
            << row.what;
    }
    const auto nothing = ProcSystemMemoryProvider("/nonexistent", "/nonexistent").read();
    EXPECT_GT(nothing.physical.bytes, 1U << 20U);
    EXPECT_EQ(nothing.available, nothing.physical);
    EXPECT_EQ(nothing.pressure, MemoryPressureLevel::normal);
}

} // namespace
} // namespace ramdisk::test
