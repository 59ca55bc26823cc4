#include "RamDiskInfrastructure/MacTools/ToolOutput.h"

#include <gtest/gtest.h>

namespace ramdisk {
namespace {

std::string name(const std::optional<DeviceIdentifier>& device) {
    return device ? device->bsdName() : "none";
}

TEST(ToolOutput, TheFirstWholeDiskIsFound) {
    const struct {
        const char* text;
        const char* disk;
    } rows[] = {
        {"/dev/disk4          \t\t\n", "disk4"},
        {"/dev/disk7\n/dev/disk8\n", "disk7"},
        {"disk12", "disk12"},
        {"(disk3)", "disk3"},
        {"Checksumming…\n/dev/disk4          \tGUID_partition_scheme          \t\n", "disk4"},
        {"/dev/disk4s1\n/dev/disk5\n", "disk5"},
        {"/dev/rdisk4 /dev/disk6", "disk6"},
        {"/dev/disk4s1", "none"},
        {"mydisk4 disk4x disk_4 disk Disk4", "none"},
        {"disk", "none"},
        {"", "none"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(name(firstWholeDisk(row.text)), row.disk) << row.text;
    }
    EXPECT_EQ(name(firstWholeDisk(std::string(1000000, '7') + " disk" + std::string(100000, '9') + "s1")),
              "none");
}

TEST(ToolOutput, TheContainerIsTheDiskOfTheOperationAndNotAnEarlierOne) {
    const struct {
        const char* text;
        const char* disk;
    } rows[] = {
        {"Creating container with disk5\nCreated new APFS Container disk9\nDisk from APFS operation: disk9\n",
         "disk9"},
        {"Disk from APFS operation: disk1s5\n", "disk1"},
        {"Disk from APFS operation: none\nDisk from APFS operation: disk2\n", "disk2"},
        {"Created new APFS Container disk9\n", "none"},
        {"Disk from APFS operation: disk", "none"},
        {"Disk from APFS operation:disk3", "none"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(name(apfsOperationDisk(row.text)), row.disk) << row.text;
    }
}

TEST(ToolOutput, ABusyDiskIsToldByStatusOrText) {
    const struct {
        CommandOutput output;
        bool isBusy;
    } rows[] = {
        {{16, "\"disk17\" unmounted.\n", "hdiutil: couldn't eject \"disk17\" - Resource busy\n"}, true},
        {{1, "", "Error 80 (unmounting)"}, true},
        {{1, "", "Error 80: unmounting"}, false},
        {{1, "DiskManagement returned 80", ""}, true},
        {{1, "", "returned 80."}, true},
        {{1, "", "returned 800 and then returned 80\n"}, true},
        {{1, "", "returned 800"}, false},
        {{1, "", "returned 80s"}, false},
        {{1, "", "hdiutil: couldn't unmount \"disk17\" - Resource busy\n"}, true},
        {{1, "", "hdiutil: detach failed - error 49168\n"}, true},
        {{1, "", "hdiutil: detach failed - error 491681\n"}, false},
        {{1, "", "hdiutil: detach failed - No such file or directory\n"}, false},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(saysBusy(row.output), row.isBusy) << row.output.standardOutput << row.output.standardError;
    }
}

TEST(ToolOutput, AWrongPassphraseIsTold) {
    EXPECT_TRUE(saysWrongPassphrase({1, "", "hdiutil: attach failed - Authentication error\n"}));
    EXPECT_TRUE(saysWrongPassphrase({1, "", "DIHLDiskImageAttach() returned 80\nhdiutil: Anmeldefehler\n"}));
    EXPECT_FALSE(saysWrongPassphrase({1, "", "hdiutil: attach failed - no mountable file systems\n"}));
}

} // namespace
} // namespace ramdisk
