#include "RamDiskCore/Values/ByteCount.h"

#include "RamDiskCore/Values/ByteCountFormat.h"
#include "RamDiskUI/ErrorText.h"
#include "tests/support/Testing.h"

namespace ramdisk {
namespace {

TEST(ByteCountTest, ReadsSizesAsPeopleWriteThem) {
    struct Row {
        const char* text;
        std::uint64_t bytes;
    };
    for (const auto& row : {
             Row{"2G", 2147483648},
             Row{"2 g", 2147483648},
             Row{"2GB", 2147483648},
             Row{"2 gib", 2147483648},
             Row{"2\tGIB", 2147483648},
             Row{" \t2G\t ", 2147483648},
             Row{"\u00A02\u202FGB\u00A0\n", 2147483648},
             Row{"1.5G", 1610612736},
             Row{"1,5G", 1610612736},
             Row{"512 bytes", 512},
             Row{"1byte", 1},
             Row{"3", 3145728}, // in the default unit
             Row{"0", 0},
             Row{"0.5b", 1}, // halves go away from zero
             Row{"2.5b", 3},
             Row{"2.4999b", 2},
             Row{"0.0001k", 0},
             Row{"16777215T", 18446742974197923840U},
             Row{"18446744073709549568b", 18446744073709549568U}, // the largest double below 2^64
             Row{"00000000000000000000000000001K", 1024},
         }) {
        EXPECT_EQ(ByteCount::parse(row.text, ByteCount::Unit::mebibyte).bytes, row.bytes) << row.text;
    }
}

TEST(ByteCountTest, RefusesWhatIsNoSizeInWordsThatSayWhy) {
    struct Row {
        std::string text;
        std::string message;
    };
    const std::string malformed = "” is not a valid size. Use values like 512M, 2G or 1.5GB.";
    for (const auto& row : {
             Row{"", "Size must not be empty."},
             Row{" \t ", "Size must not be empty."},
             Row{"\u00A0", "Size must not be empty."},
             Row{"12X", "Unknown size unit “X”. Use K, M, G or T."},
             Row{"12 Mbit", "Unknown size unit “Mbit”. Use K, M, G or T."},
             Row{"20000000T", "“20000000T” is too large."},
             Row{" 16777216T", "“16777216T” is too large."},
             Row{"18446744073709551615b", "“18446744073709551615b” is too large."},
             Row{"1" + std::string(400, '0') + "b", "“1" + std::string(400, '0') + "b” is too large."},
             Row{" abc ", "“abc" + malformed},
             Row{"-1", "“-1" + malformed},
             Row{"1.", "“1." + malformed},
             Row{".5G", "“.5G" + malformed},
             Row{"1.5.2G", "“1.5.2G" + malformed},
             Row{"1 G B", "“1 G B" + malformed},
             Row{"1e3", "“1e3" + malformed},
             Row{"١G", "“١G" + malformed},
             Row{"1Gé", "“1Gé" + malformed},
         }) {
        try {
            const auto size = ByteCount::parse(row.text, ByteCount::Unit::mebibyte);
            ADD_FAILURE() << row.text << " was read as " << size.bytes;
        } catch (const ByteCountParsingError& error) {
            EXPECT_EQ(errorText(error), row.message);
        }
    }
}

TEST(ByteCountTest, PrintsBinaryMultiplesRoundedForTheirUnit) {
    struct Row {
        std::uint64_t bytes;
        const char* text;
    };
    constexpr std::uint64_t kibi = 1024;
    constexpr std::uint64_t mebi = kibi * kibi;
    constexpr std::uint64_t gibi = mebi * kibi;
    for (const auto& row : {
             Row{0, "0 bytes"},
             Row{1, "1 byte"},
             Row{1023, "1023 bytes"},
             Row{kibi, "1 KB"},
             Row{kibi + 512, "2 KB"},
             Row{mebi - 1, "1 MB"}, // never "1024 KB"
             Row{512 * mebi, "512 MB"},
             Row{mebi + mebi / 2, "1.5 MB"},
             Row{gibi - 1, "1 GB"},
             Row{gibi + gibi / 2, "1.5 GB"},
             Row{gibi + gibi / 20, "1.05 GB"},
             Row{gibi + gibi / 4, "1.25 GB"},
             Row{5 * gibi * kibi, "5 TB"},
             Row{std::numeric_limits<std::uint64_t>::max(), "8388608 TB"},
         }) {
        EXPECT_EQ(format(ByteCount{row.bytes}), row.text);
        EXPECT_EQ(formatNumber(ByteCount{row.bytes}) + " " + formatUnit(ByteCount{row.bytes}), row.text);
    }
}

} // namespace
} // namespace ramdisk
