#include "RamDiskInfrastructure/MacTools/DiskUtilVolumeFormatter.h"

#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskInfrastructure/MacTools/AttachedRamImage.h"
#include "RamDiskInfrastructure/MacTools/DiskUtilVolumeRenamer.h"
#include "RamDiskInfrastructure/MacTools/DittoFolderCopier.h"
#include "RamDiskInfrastructure/MacTools/MDUtilIndexController.h"
#include "RamDiskUI/ErrorText.h"
#include "tests/support/ScriptedMac.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace ramdisk {
namespace {

using test::ScriptedMac;
using testing::ElementsAre;

class MacVolumeTests : public testing::Test {
protected:
    DiskUtilVolumeFormatter formatter() {
        return DiskUtilVolumeFormatter({mac, test::privateMountsOn(mac, mounts), test::marksOn(mac)});
    }

    /// A fresh device, with what was run for it forgotten.
    DeviceIdentifier device() {
        RamDeviceAllocator allocator(
            {mac, RamDeviceAllocator::AttachMethod::classic, nullptr, nullptr, nullptr});
        const auto made = allocator.allocate(ByteCount::of(64, ByteCount::Unit::mebibyte));
        mac->commands.clear();
        return made;
    }

    std::filesystem::path format(const RamDiskSpecification& specification) {
        VolumeProtection protection;
        if (specification.isEncrypted) {
            mac->secrets.emplace_back("open, sesame");
            protection.value = VolumeProtection::Encrypted{VolumePassphrase("open, sesame")};
        }
        return formatter().format(device(), specification, protection);
    }

    template <typename Action>
    std::string textOf(Action action) {
        try {
            action();
        } catch (const RamDiskError& error) {
            return errorText(error);
        }
        return "nothing was thrown";
    }

    test::TemporaryFolder folder;
    std::filesystem::path mounts = folder.path() / "Library" / "RamDisks";
    std::shared_ptr<ScriptedMac> mac = std::make_shared<ScriptedMac>();
};

RamDiskSpecification specification(FileSystem fileSystem, bool isEncrypted = false,
                                   VolumeAccess access = VolumeAccess::everyone) {
    return {"Build & Test", ByteCount{}, fileSystem, false, isEncrypted, access};
}

TEST_F(MacVolumeTests, EveryFormatHasItsToolName) {
    const std::pair<FileSystem, const char*> rows[] = {
        {FileSystem::apfs, "APFS"},    {FileSystem::apfsCaseSensitive, "APFSX"},
        {FileSystem::hfsPlus, "HFS+"}, {FileSystem::journaledHFSPlus, "JHFS+"},
        {FileSystem::exFAT, "ExFAT"},  {FileSystem::fat32, "FAT32"},
    };
    for (const auto& [fileSystem, name] : rows) {
        const auto volume = format(specification(fileSystem));
        EXPECT_EQ(volume, mac->images.back().volume->mountPoint);
        const auto erase = std::string("/usr/sbin/diskutil erasevolume ") + name + " Build & Test /dev/";
        EXPECT_THAT(mac->descriptions(),
                    ElementsAre(erase + mac->images.back().name(), "/usr/bin/hdiutil info -plist"));
        EXPECT_TRUE(UUID::parse(mac->images.back().volume->mark.value_or("")));
        EXPECT_THAT(formatter().plan(specification(fileSystem)),
                    ElementsAre(erase + "DEVICE", "set com.tavrin.ramdisk.created on the volume"));
    }
    EXPECT_TRUE(mac->closedDevices.empty());
}

TEST_F(MacVolumeTests, AnEncryptedVolumeIsMadeInAContainerOfItsOwn) {
    EXPECT_EQ(format(specification(FileSystem::apfsCaseSensitive, true)), "/Volumes/Build & Test");
    EXPECT_THAT(mac->descriptions(),
                ElementsAre("/usr/sbin/diskutil apfs createContainer /dev/disk4",
                            "/usr/sbin/diskutil apfs addVolume disk5 APFSX Build & Test -stdinpassphrase",
                            "/usr/bin/hdiutil info -plist"));
    EXPECT_EQ(mac->commands[1].standardInput, "open, sesame");
    EXPECT_FALSE(mac->commands[0].standardInput || mac->commands[2].standardInput);
}

TEST_F(MacVolumeTests, FormatsThatCannotBeEncryptedAreRefusedBeforeAnyToolRuns) {
    for (const auto& [fileSystem, text] :
         {std::pair(FileSystem::exFAT, "ExFAT does not support encryption."),
          std::pair(FileSystem::journaledHFSPlus, "JHFS+ does not support encryption.")}) {
        const auto whole = std::string("Could not format the RAM disk: ") + text;
        EXPECT_EQ(textOf([&] { (void)format(specification(fileSystem, true)); }), whole);
        EXPECT_EQ(textOf([&] { formatter().requireSupport(specification(fileSystem, true)); }), whole);
        EXPECT_TRUE(mac->commands.empty());
    }
}

TEST_F(MacVolumeTests, APrivateVolumeIsMountedAgainInItsOwnersFolder) {
    const auto made = format(specification(FileSystem::hfsPlus, false, VolumeAccess::onlyMe));
    EXPECT_EQ(made, mounts / "Build & Test");
    EXPECT_THAT(mac->descriptions(),
                ElementsAre("/usr/sbin/diskutil erasevolume HFS+ Build & Test /dev/disk4",
                            "/usr/bin/hdiutil info -plist", "/usr/sbin/diskutil unmount /dev/disk4",
                            "/usr/sbin/diskutil mount -mountPoint " + made.string() + " /dev/disk4"));
    EXPECT_EQ(std::filesystem::status(mounts).permissions(), std::filesystem::perms::owner_all);
    EXPECT_TRUE(mac->images.back().volume->mark);
    EXPECT_THAT(mac->closedDevices, ElementsAre("disk4"));
}

TEST_F(MacVolumeTests, APrivateEncryptedVolumeIsUnlockedWhereItIsMounted) {
    const auto made = format(specification(FileSystem::apfs, true, VolumeAccess::onlyMe));
    EXPECT_EQ(mac->descriptions()[3], "/usr/sbin/diskutil unmount /dev/disk5s1");
    EXPECT_EQ(mac->descriptions()[4],
              "/usr/sbin/diskutil apfs unlockVolume /dev/disk5s1 -stdinpassphrase -mountpoint "
                  + made.string());
    EXPECT_EQ(mac->commands[4].standardInput, "open, sesame");
    EXPECT_THAT(mac->closedDevices, ElementsAre("disk4", "disk5", "disk5s1"));
    for (const auto& step : formatter().plan(specification(FileSystem::apfs, true, VolumeAccess::onlyMe))) {
        EXPECT_EQ(step.find("sesame"), std::string::npos);
    }
}

TEST_F(MacVolumeTests, EveryFailedStepTellsTheToolsReasonAndLeavesNoFolder) {
    const auto failure = [](const char* text) { return CommandOutput{1, "Started\n", text}; };
    const struct {
        bool isEncrypted;
        std::string command;
        CommandOutput output;
        const char* reason;
    } rows[] = {
        {false, "erasevolume HFS+ Build & Test /dev/disk4", failure("Error: -69877: Couldn't open device\n"),
         "diskutil: Error: -69877: Couldn't open device"},
        {false, "unmount /dev/disk4", failure("Unmount failed for /dev/disk4\n"),
         "diskutil: Unmount failed for /dev/disk4"},
        {false, "mount -mountPoint " + (mounts / "Build & Test").string() + " /dev/disk4",
         failure("Volume on disk4 failed to mount\n"), "diskutil: Volume on disk4 failed to mount"},
        {true,
         "apfs createContainer /dev/disk4",
         {0, "Finished APFS operation on disk4\n", ""},
         "diskutil did not report the new APFS container."},
        {true, "apfs addVolume disk5 APFS Build & Test -stdinpassphrase", failure("open\n"),
         "diskutil: open"},
        {true,
         "apfs unlockVolume /dev/disk5s1 -stdinpassphrase -mountpoint " + (mounts / "Build & Test").string(),
         failure("Error unlocking APFS Volume\n"), "diskutil: Error unlocking APFS Volume"},
    };
    for (const auto& row : rows) {
        mac->images.clear();
        mac->script("/usr/sbin/diskutil " + row.command, row.output);
        const auto fileSystem = row.isEncrypted ? FileSystem::apfs : FileSystem::hfsPlus;
        EXPECT_EQ(
            textOf([&] { (void)format(specification(fileSystem, row.isEncrypted, VolumeAccess::onlyMe)); }),
            std::string("Could not format the RAM disk: ") + row.reason);
        EXPECT_TRUE(!std::filesystem::exists(mounts) || std::filesystem::is_empty(mounts)) << row.command;
    }
}

TEST_F(MacVolumeTests, AVolumeThatWasNotMountedIsNoSuccess) {
    mac->script("/usr/sbin/diskutil erasevolume HFS+ Build & Test /dev/disk4", {0, "Finished erase\n", ""});
    EXPECT_EQ(textOf([&] { (void)format(specification(FileSystem::hfsPlus)); }),
              "Could not format the RAM disk: The new volume was not mounted.");
    mac->script("/usr/bin/hdiutil info -plist", {1, "", "hdiutil: info failed - not now\n"});
    EXPECT_EQ(textOf([&] { (void)format(specification(FileSystem::hfsPlus)); }),
              "Could not format the RAM disk: hdiutil: hdiutil: info failed - not now");
}

TEST_F(MacVolumeTests, AnOpenDeviceNodeIsNoPrivateDisk) {
    const auto closed =
        std::make_shared<PrivateMounts>(mounts, [](const DeviceIdentifier&) { return false; });
    DiskUtilVolumeFormatter unable({mac, closed, test::marksOn(mac)});
    EXPECT_EQ(textOf([&] {
                  (void)unable.format(device(),
                                      specification(FileSystem::hfsPlus, false, VolumeAccess::onlyMe), {});
              }),
              "Could not format the RAM disk: Other accounts could still read /dev/disk4.");
}

TEST_F(MacVolumeTests, RenamingNamesTheVolumeByItsMountPoint) {
    DiskUtilVolumeRenamer renamer(mac);
    RamDisk disk{.device = DeviceIdentifier::wholeDisk(6), .name = "Old", .capacity = {}};
    EXPECT_EQ(textOf([&] { renamer.rename(disk, "New"); }), "disk6 is not mounted.");
    disk.mountPoint = "/Volumes/Old";
    mac->script("/usr/sbin/diskutil rename /Volumes/Old New", {0, "Volume on disk9s1 renamed to New\n", ""});
    renamer.rename(disk, "New");
    mac->script("/usr/sbin/diskutil rename /Volumes/Old New", {1, "", "Failed to rename volume\n"});
    EXPECT_EQ(textOf([&] { renamer.rename(disk, "New"); }),
              "Could not format the RAM disk: diskutil: Failed to rename volume");
}

TEST_F(MacVolumeTests, IndexingIsReadFromTheToolsSentence) {
    MDUtilIndexController indexing(mac);
    const struct {
        CommandOutput output;
        std::optional<SearchIndexing> state;
    } rows[] = {
        {{0, "/Volumes/A:\n\tIndexing enabled. \n", ""}, SearchIndexing::on},
        {{0, "/Volumes/A:\n\tIndexing disabled.\n", ""}, SearchIndexing::off},
        {{0, "/Volumes/A:\n\tServer search enabled.\n", ""}, std::nullopt},
        {{1, "Error: unknown indexing state.\n", ""}, std::nullopt},
    };
    for (const auto& row : rows) {
        mac->script("/usr/bin/mdutil -s /Volumes/A", row.output);
        EXPECT_EQ(indexing.state("/Volumes/A"), row.state) << row.output.standardOutput;
        EXPECT_EQ(mac->commands.back().timeout, 30.0);
    }
    for (const auto& [value, word] :
         {std::pair(SearchIndexing::on, "on"), std::pair(SearchIndexing::off, "off")}) {
        mac->script(std::string("/usr/bin/mdutil -i ") + word + " /Volumes/A", {});
        indexing.set(value, "/Volumes/A");
        EXPECT_FALSE(mac->commands.back().timeout);
        EXPECT_THAT(indexing.plan(value),
                    ElementsAre(std::string("/usr/bin/mdutil -i ") + word + " MOUNT-POINT"));
    }
    mac->script("/usr/bin/mdutil -i off /Volumes/A", {1, "", "Error: Operation not permitted.\n"});
    EXPECT_THROW(indexing.set(SearchIndexing::off, "/Volumes/A"), CommandFailure);
}

TEST_F(MacVolumeTests, CopyingAFolderTellsTheToolsReason) {
    DittoFolderCopier copier(mac);
    mac->script("/usr/bin/ditto /Users/me/Seed /Volumes/A", {});
    copier.copy("/Users/me/Seed", "/Volumes/A");
    mac->script("/usr/bin/ditto /Users/me/Seed /Volumes/A",
                {1, "", "ditto: can't get real path for source '/Users/me/Seed'\n"});
    EXPECT_EQ(textOf([&] { copier.copy("/Users/me/Seed", "/Volumes/A"); }),
              "Could not copy the contents: ditto: ditto: can't get real path for source '/Users/me/Seed'");
}

} // namespace
} // namespace ramdisk
