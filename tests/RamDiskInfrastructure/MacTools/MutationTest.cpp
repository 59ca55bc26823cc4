#include "RamDiskCore/Values/Text.h"
#include "RamDiskInfrastructure/MacTools/HDIUtilInfoParser.h"
#include "RamDiskInfrastructure/MacTools/ToolOutput.h"
#include "RamDiskInfrastructure/Unix/LsofVolumeUsers.h"
#include "tests/support/ScriptedMac.h"

#include <regex>

namespace ramdisk::test {
namespace {

/// What the tool prints for a RAM disk, an encrypted one and somebody's image.
std::string realisticList() {
    test::ScriptedMac mac;
    mac.attachForeign("ram://4194304", "Build");
    mac.attachForeign("/Users/me/Other & more.dmg", "Other");
    auto& image = mac.attachForeign("ram://16384", "Büro");
    image.container = 9;
    return mac.run({"/usr/bin/hdiutil", {"info", "-plist"}, std::nullopt, 30.0}).standardOutput;
}

/// Looks at the text, and at it with every place damaged, as a broken pipe, another version or a hostile
/// volume name would.
void forEachDamage(const std::string& text, const std::function<void(const std::string&)>& look) {
    look(text);
    for (std::size_t at = 0; at < text.size() && !testing::Test::HasFailure(); ++at) {
        const auto before = text.substr(0, at);
        look(before);
        look(before + text.substr(at + 1));
        for (const auto* damage :
             {"0", "-", "z_", " ", "\n", "\xff", "&#x110000;", "<dict>", "</array>", "disk"}) {
            look(before + damage + text.substr(at));
        }
    }
}

void expectSaneImages(const std::string& text) {
    try {
        for (const auto& image : HDIUtilInfoParser::ramImages(text)) {
            EXPECT_LE(image.capacity.bytes,
                      static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()));
            EXPECT_EQ(image.mountPoint.has_value(), image.volumeDevicePath.has_value());
            EXPECT_FALSE(image.devicePaths.empty());
        }
    } catch (const PropertyListError&) { // NOLINT(bugprone-empty-catch)
        // A list that is no list is told as such.
    }
}

TEST(MutationTest, ADamagedListIsAnErrorOrAList) {
    const auto xml = realisticList();
    ASSERT_EQ(HDIUtilInfoParser::ramImages(xml).size(), 2U);
    forEachDamage(xml, expectSaneImages);
}

TEST(MutationTest, ToolTextsAreReadAsTheirPatternsSayAlsoWhenTheyAreDamaged) {
    const std::vector<std::string> texts{
        "p42\ncPreview\np7\ncFinder\n",
        "Checksumming…\n/dev/disk4          \tGUID_partition_scheme          \t\n/dev/disk4s1        "
        "\tApple_HFS \t/Volumes/A\n",
        "/dev/disk4s1\n/dev/rdisk4\n(disk5)\n/dev/disk6\n",
        "mydisk4 disk4x disk_4 disk Disk4",
        "Creating container with disk5\nCreated new APFS Container disk9\nDisk from APFS operation: none\n"
        "Disk from APFS operation: disk9s1\nDisk from APFS operation: disk2\n",
        "Disk from APFS operation:disk3\nDisk from APFS operation: disk",
        "\"disk17\" unmounted.\nhdiutil: couldn't eject \"disk17\" - Error 80 (returned 80)\n",
        "Error 80: unmounting, returned 80s",
        "returned 800 and then returned 80.",
        "hdiutil: couldn't unmount \"disk17\" - Resource busy\n",
        "hdiutil: detach failed - error 49168\n",
        "hdiutil: detach failed - error 491681 - No such file or directory\n"};
    // What the hand-made matching stands for; on texts this short the library's own can be trusted.
    const std::regex wholeDisk("(?:/dev/)?\\b(disk[0-9]+)\\b");
    const std::regex apfsDisk("Disk from APFS operation: (disk[0-9]+)");
    const std::regex busy("Error 80 \\(|returned 80\\b|Resource busy\\b|error 49168\\b");
    const auto match = [](const std::string& text, const std::regex& pattern) {
        std::smatch found;
        return std::regex_search(text, found, pattern) ? found[1].str() : "";
    };
    const auto name = [](const std::optional<DeviceIdentifier>& device) {
        return device ? device->bsdName() : "";
    };
    const auto expectAsThePatternsSay = [&](const std::string& text) {
        EXPECT_EQ(name(firstWholeDisk(text)), match(text, wholeDisk)) << text;
        EXPECT_EQ(name(apfsOperationDisk(text)), match(text, apfsDisk)) << text;
        EXPECT_EQ(saysBusy({1, text, ""}), std::regex_search(text, busy)) << text;
        EXPECT_EQ(saysBusy({1, "", text}), std::regex_search(text, busy)) << text;
        std::set<std::int32_t> processes;
        for (const auto& user : parseLsofFields(text)) {
            EXPECT_TRUE(processes.insert(user.processID).second) << text;
            EXPECT_NE(replacingInvalidUTF8(text).find(user.name), std::string::npos) << text;
        }
    };
    for (const auto& text : texts) {
        forEachDamage(text, expectAsThePatternsSay);
    }
}

TEST(MutationTest, LongTextsStatusesAndWrongPassphrasesAreReadToo) {
    EXPECT_EQ(firstWholeDisk(std::string(1000000, '7') + " disk" + std::string(100000, '9') + "s1"),
              std::nullopt);
    EXPECT_TRUE(saysBusy({16, "", ""}));
    EXPECT_TRUE(saysWrongPassphrase({1, "", "hdiutil: attach failed - Authentication error\n"}));
    EXPECT_TRUE(saysWrongPassphrase({1, "", "DIHLDiskImageAttach() returned 80\nhdiutil: Anmeldefehler\n"}));
    EXPECT_FALSE(saysWrongPassphrase({1, "", "hdiutil: attach failed - no mountable file systems\n"}));
}

} // namespace
} // namespace ramdisk::test
