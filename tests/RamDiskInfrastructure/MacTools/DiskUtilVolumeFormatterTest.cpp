#include "RamDiskInfrastructure/MacTools/DiskUtilVolumeFormatter.h"

#include "RamDiskInfrastructure/MacTools/DiskUtilVolumeRenamer.h"
#include "RamDiskInfrastructure/MacTools/DittoFolderCopier.h"
#include "RamDiskInfrastructure/MacTools/MDUtilIndexController.h"
#include "tests/RamDiskInfrastructure/MacTools/MacTest.h"
#include "tests/support/ScriptedRunner.h"

namespace ramdisk {
namespace {

using testing::ElementsAre;

const std::string formatFailed = "Could not format the RAM disk: ";

class MacVolumeTest : public test::MacTest {
protected:
    DiskUtilVolumeFormatter formatter() {
        return DiskUtilVolumeFormatter({mac, adapters.privateMounts, adapters.marks});
    }
};

TEST_F(MacVolumeTest, EveryFormatHasItsToolNameAndAPlanRunsNothing) {
    const std::pair<FileSystem, const char*> rows[] = {
        {FileSystem::apfs, "APFS"},    {FileSystem::apfsCaseSensitive, "APFSX"},
        {FileSystem::hfsPlus, "HFS+"}, {FileSystem::journaledHFSPlus, "JHFS+"},
        {FileSystem::exFAT, "ExFAT"},  {FileSystem::fat32, "FAT32"},
    };
    for (const auto& [fileSystem, name] : rows) {
        // FAT32 has no small letters, and the tool refuses them.
        const auto* volume = fileSystem == FileSystem::fat32 ? " BÜRO" : " Büro";
        EXPECT_THAT(
            formatter().plan({.name = "Büro", .fileSystem = fileSystem}),
            ElementsAre(std::string("/usr/sbin/diskutil erasevolume ") + name + volume + " /dev/DEVICE",
                        "set com.tavrin.ramdisk.created on the volume"));
    }
    const auto plan = services().create->plan(
        {.fileSystem = FileSystem::apfs, .isEncrypted = true, .access = VolumeAccess::onlyMe});
    EXPECT_EQ(plan.steps.size(), 9U);
    EXPECT_TRUE(mac->commands.empty());
    EXPECT_TRUE(mac->secrets.empty());
}

TEST_F(MacVolumeTest, FormatsThatCannotBeEncryptedAreRefusedBeforeAnyToolRuns) {
    const RamDiskSpecification wanted{.name = "A", .fileSystem = FileSystem::exFAT, .isEncrypted = true};
    const VolumeProtection protection{VolumeProtection::Encrypted{VolumePassphrase("x")}};
    const auto format = [&] { (void)formatter().format(DeviceIdentifier::wholeDisk(4), wanted, protection); };
    const auto refusal = formatFailed + "ExFAT does not support encryption.";
    EXPECT_EQ(textOf(format), refusal);
    EXPECT_EQ(textOf([&] { formatter().requireSupport(wanted); }), refusal);
    EXPECT_TRUE(mac->commands.empty());
}

TEST_F(MacVolumeTest, EveryFailedStepTellsTheToolsReasonAndLeavesNothing) {
    const auto failure = [](const char* text) { return test::fails(1, text, "Started\n"); };
    const auto erase = "diskutil erasevolume HFS+ Build & Test /dev/disk4";
    const auto mountPoint = (mounts / "Build & Test").string();
    const struct {
        bool isEncrypted;
        std::string command;
        CommandOutput output;
        const char* reason;
        const char* open = "";
    } rows[] = {
        {false, erase, failure("Error: -69877: no device\n"), "diskutil: Error: -69877: no device"},
        {false, erase, test::succeeds("Finished erase\n"), "The new volume was not mounted."},
        {false, "hdiutil info -plist", failure("not now\n"), "hdiutil: not now"},
        {false, "diskutil unmount /dev/disk4", failure("Unmount failed\n"), "diskutil: Unmount failed"},
        {false, "diskutil mount -mountPoint " + mountPoint + " /dev/disk4", failure("failed to mount\n"),
         "diskutil: failed to mount"},
        {true, "diskutil apfs createContainer /dev/disk4", test::succeeds("Finished on disk4\n"),
         "diskutil did not report the new APFS container."},
        {true, "diskutil apfs addVolume disk5 APFS Build & Test -stdinpassphrase", failure("open\n"),
         "diskutil: open"},
        {true, "diskutil apfs unlockVolume /dev/disk5s1 -stdinpassphrase -mountpoint " + mountPoint,
         failure("Error unlocking\n"), "diskutil: Error unlocking"},
        {false, "", {}, "Other accounts could still read /dev/disk4.", "disk4"},
        {true, "", {}, "Other accounts could still read /dev/disk5s1.", "disk5s1"},
    };
    for (const auto& row : rows) {
        mac->openDevices = {row.open};
        if (!row.command.empty()) {
            mac->script((row.command.front() == 'd' ? "/usr/sbin/" : "/usr/bin/") + row.command, row.output);
        }
        mac->images.clear();
        const auto device = DeviceIdentifier::wholeDisk(mac->attachForeign("ram://131072", "Blank").disk);
        mac->images.back().volume.reset();
        const RamDiskSpecification wanted{.name = "Build & Test",
                                          .fileSystem =
                                              row.isEncrypted ? FileSystem::apfs : FileSystem::hfsPlus,
                                          .isEncrypted = row.isEncrypted,
                                          .access = VolumeAccess::onlyMe};
        VolumeProtection protection;
        if (row.isEncrypted) {
            protection.value = VolumeProtection::Encrypted{mac->generate()};
        }
        EXPECT_EQ(textOf([&] { (void)formatter().format(device, wanted, protection); }),
                  formatFailed + row.reason);
        if (!row.command.empty()) {
            expectNoMountPoints();
        }
    }
    mac->images.clear();
    mac->script(std::string("/usr/sbin/") + erase, failure("Error\n"));
    const RamDiskSpecification wanted{.name = " Build & Test ", .size = ByteCount{1073741824}};
    EXPECT_EQ(textOf([&] { services().create->execute(wanted); }), formatFailed + "diskutil: Error");
    EXPECT_EQ(ran().back(), "hdiutil detach -force /dev/disk4");
    EXPECT_TRUE(mac->images.empty());
}

TEST_F(MacVolumeTest, RenamingNamesTheVolumeByItsMountPoint) {
    DiskUtilVolumeRenamer renamer(mac);
    RamDisk disk{.device = DeviceIdentifier::wholeDisk(6), .name = "Old", .capacity = {}};
    EXPECT_EQ(textOf([&] { renamer.rename(disk, "New"); }), "disk6 is not mounted.");
    disk.mountPoint = "/Volumes/Old";
    mac->script("/usr/sbin/diskutil rename /Volumes/Old New", {});
    renamer.rename(disk, "New");
    mac->script("/usr/sbin/diskutil rename /Volumes/Old New", {1, "", "Failed to rename volume\n"});
    EXPECT_EQ(textOf([&] { renamer.rename(disk, "New"); }),
              formatFailed + "diskutil: Failed to rename volume");
    disk.fileSystem = FileSystem::fat32;
    mac->script("/usr/sbin/diskutil rename /Volumes/Old NEW", {});
    renamer.rename(disk, "New");
}

TEST_F(MacVolumeTest, AContainerIsFoundInTheListWhereTheToolSpeaksAnotherLanguage) {
    mac->containerPhrase = "Volume von APFS-Vorgang: ";
    for (const bool isContainerFirst : {false, true}) {
        mac->listsContainersFirst = isContainerFirst;
        const auto disk = services()
                              .create
                              ->execute({.name = isContainerFirst ? "A" : "B",
                                         .fileSystem = FileSystem::apfs,
                                         .isEncrypted = true})
                              .ramDisk;
        EXPECT_TRUE(disk.isEncrypted.value());
    }
}

TEST_F(MacVolumeTest, IndexingIsReadFromTheToolsSentence) {
    const auto runner = std::make_shared<test::ScriptedRunner>();
    MDUtilIndexController indexing(runner);
    const struct {
        CommandOutput output;
        std::optional<SearchIndexing> state;
    } rows[] = {
        {{0, "/Volumes/A:\n\tIndexing enabled. \n", ""}, SearchIndexing::on},
        {{0, "/Volumes/A:\n\tIndexing disabled.\n", ""}, SearchIndexing::off},
        {{0, "/Volumes/A:\n\tServer search enabled.\n", ""}, std::nullopt},
        {{1, "Error: unknown indexing state.\n", ""}, std::nullopt},
        {{0, "/Volumes/A:\n\tIndexing and searching disabled.\n", ""}, SearchIndexing::off},
        {{0, "/Volumes/A:\n", "\tSpotlight server is disabled.\n"}, SearchIndexing::off},
        {{0, "/Volumes/Indexing enabled:\n\tIndexing disabled.\n", ""}, SearchIndexing::off},
        {{0, "/Volumes/A\nIndexing enabled.:\n\tIndexing disabled.\n", ""}, SearchIndexing::off},
        {{0, "", "mdutil[5:9] mdutil disabling Spotlight: /Volumes/Indexing enabled\n"}, std::nullopt},
    };
    for (const auto& row : rows) {
        runner->once("/usr/bin/mdutil -s /Volumes/A", row.output);
        EXPECT_EQ(indexing.state("/Volumes/A"), row.state) << row.output.standardOutput;
        EXPECT_EQ(runner->commands.back().timeout, 30.0);
    }
    EXPECT_THAT(indexing.plan(SearchIndexing::off), ElementsAre("/usr/bin/mdutil -i off MOUNT-POINT"));
}

TEST_F(MacVolumeTest, WhetherIndexingWasSwitchedIsAskedForWhereTheToolSpeaksOfAnError) {
    const auto log =
        std::string("mdutil[5:9] mdutil disabling Spotlight: /Volumes/A -> kMDConfigSearchLevelOff\n");
    const auto error = "Error: Operation not permitted.\n";
    const test::ScriptedRunner::Answer off = [](const auto&) {
        return test::succeeds("/Volumes/A:\n\tIndexing and searching disabled.\n");
    };
    const test::ScriptedRunner::Answer on = [](const auto&) {
        return test::succeeds("/Volumes/A:\n\tIndexing enabled.\n");
    };
    const test::ScriptedRunner::Answer unknown = [](const auto&) {
        return test::fails(1, "Error: unknown indexing state.\n");
    };
    const struct {
        CommandOutput output;
        test::ScriptedRunner::Answer state; ///< Absent when it is not asked for.
        std::string text;
    } rows[] = {
        {test::succeeds("/Volumes/A:\n", log), {}, ""},
        {test::succeeds("/Volumes/A:\n\tIndexing and searching disabled.\n", log), {}, ""},
        {test::fails(1, log), off, ""},
        {test::fails(1, log, error), on, "mdutil: Error: Operation not permitted."},
        {test::succeeds(error, log), off, ""},
        {test::succeeds(error, log), on, "mdutil: Error: Operation not permitted."},
        {test::succeeds("", error), unknown, "mdutil: Error: Operation not permitted."},
        {test::succeeds("", error), test::ScriptedRunner::hangs(), "mdutil: Error: Operation not permitted."},
        {test::fails(2, "mdutil: no such volume\n"), on, "mdutil: mdutil: no such volume"},
    };
    for (const auto& row : rows) {
        const auto runner = std::make_shared<test::ScriptedRunner>();
        runner->once("/usr/bin/mdutil -i off /Volumes/A", row.output);
        if (row.state) {
            runner->once("/usr/bin/mdutil -s /Volumes/A", row.state);
        }
        std::string text;
        try {
            MDUtilIndexController(runner).set(SearchIndexing::off, "/Volumes/A");
        } catch (const CommandFailure& failure) {
            text = failure.what();
        }
        EXPECT_EQ(text, row.text) << row.output.standardOutput;
    }
}

TEST_F(MacVolumeTest, CopyingAFolderTellsTheToolsReason) {
    DittoFolderCopier copier(mac);
    mac->script("/usr/bin/ditto /Users/me/Seed /Volumes/A", {});
    copier.copy("/Users/me/Seed", "/Volumes/A");
    mac->script("/usr/bin/ditto /Users/me/Seed /Volumes/A", test::fails(1, "ditto: no real path\n"));
    EXPECT_EQ(textOf([&] { copier.copy("/Users/me/Seed", "/Volumes/A"); }),
              "Could not copy the contents: ditto: ditto: no real path");
}

} // namespace
} // namespace ramdisk
