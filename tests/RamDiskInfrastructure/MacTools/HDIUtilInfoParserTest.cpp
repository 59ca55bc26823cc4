#include "RamDiskInfrastructure/MacTools/HDIUtilInfoParser.h"

#include "RamDiskInfrastructure/Unix/LsofVolumeUsers.h"
#include "tests/RamDiskInfrastructure/MacTools/MacTest.h"
#include "tests/support/ScriptedRunner.h"

namespace ramdisk {
namespace {

using testing::ElementsAre;

std::string listOf(const std::string& images) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?><plist version=\"1.0\"><dict><key>images</key><array>"
           + images + "</array></dict></plist>";
}

std::string entity(const std::string& device, const std::string& mountPoint = {}) {
    return "<dict><key>dev-entry</key><string>" + device + "</string>"
           + (mountPoint.empty() ? "" : "<key>mount-point</key><string>" + mountPoint + "</string>")
           + "</dict>";
}

/// An image with these keys beside its entities.
std::string image(const std::string& keys, const std::string& entities = entity("/dev/disk5")) {
    return "<dict>" + keys + "<key>system-entities</key><array>" + entities + "</array></dict>";
}

std::string path(const std::string& text) {
    return "<key>image-path</key><string>" + text + "</string>";
}

std::string integer(const std::string& key, const std::string& value) {
    return "<key>" + key + "</key><integer>" + value + "</integer>";
}

TEST(HDIUtilInfoParserTest, OnlyImagesInMemoryWithADeviceAreTakenAndTheFirstVolumeOfEach) {
    const auto images = HDIUtilInfoParser::ramImages(listOf(
        image(path("/Users/me/Other.dmg")) + image("") + image(path("ram:/2048"))
        + image(path("ram://2048"), "") + image(path("ram://2048"), entity("/dev/synthesized"))
        + image(path("ram://20480") + integer("hdid-pid", "18610"),
                entity("/dev/disk6") + entity("/dev/disk9") + entity("/dev/disk9s1", "/Volumes/R&amp;D")
                    + entity("/dev/disk9s2", "/Volumes/Second"))));
    ASSERT_EQ(images.size(), 1U);
    EXPECT_EQ(images.front(), (AttachedRamImage{DeviceIdentifier::wholeDisk(6),
                                                ByteCount{10485760},
                                                "/Volumes/R&D",
                                                18610,
                                                {"/dev/disk6", "/dev/disk9", "/dev/disk9s1", "/dev/disk9s2"},
                                                "/dev/disk9s1"}));
    EXPECT_TRUE(images.front().has(DeviceIdentifier::wholeDisk(9)));
    EXPECT_FALSE(images.front().has(DeviceIdentifier::wholeDisk(96)));
    // The last is the same empty dictionary in the binary form.
    const std::string empty[] = {
        listOf(""), "<plist version=\"1.0\"><dict/></plist>",
        std::string("bplist00\xD0\x08\0\0\0\0\0\0\1\1\0\0\0\0\0\0\0\1\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\x09",
                    42)};
    for (const auto& list : empty) {
        EXPECT_TRUE(HDIUtilInfoParser::ramImages(list).empty());
    }
}

TEST(HDIUtilInfoParserTest, CapacityComesFromTheCountsOrElseThePath) {
    const struct {
        std::string keys;
        std::uint64_t capacity;
    } rows[] = {
        {path("ram://2048"), 1048576},
        {path("ram://2048") + integer("blocksize", "4096"), 8388608},
        {path("ram://2048") + integer("blockcount", "10"), 5120},
        {path("ram://2048") + integer("blockcount", "10") + integer("blocksize", "1024"), 10240},
        {path("ram://+8"), 4096},
        {path("ram://"), 0},
        {path("ram://-8"), 0},
        {path("ram://8MB"), 0},
        {path("ram://99999999999999999999999"), 0},
        {path("ram://8") + integer("blocksize", "0"), 0},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(HDIUtilInfoParser::ramImages(listOf(image(row.keys))).at(0).capacity.bytes, row.capacity)
            << row.keys;
    }
}

TEST(HDIUtilInfoParserTest, WhatNoDiskCanBeIsAnErrorAndNeverASize) {
    const std::string ram = path("ram://2048");
    const std::string rows[] = {
        ram + integer("blockcount", "-5"),
        ram + integer("blockcount", "18446744073709551615"),
        ram + integer("blockcount", "99999999999999999999999999"),
        ram + integer("blockcount", "36028797018963968"),
        ram + integer("blockcount", "9007199254740992") + integer("blocksize", "1099511627776"),
        ram + integer("blocksize", "-512"),
        ram + "<key>blockcount</key><string>2048</string>",
        ram + "<key>blockcount</key><real>2048</real>",
        ram + integer("hdid-pid", "2147483648"),
        "<key>image-path</key><integer>3</integer>",
        path("ram://9223372036854775807"),
    };
    for (const auto& keys : rows) {
        EXPECT_THROW((void)HDIUtilInfoParser::ramImages(listOf(image(keys))), PropertyListError) << keys;
    }
    std::string deep = "<plist>";
    for (int level = 0; level < 200000; ++level) {
        deep += "<array>";
    }
    const std::string noLists[] = {
        "",
        "hdiutil: info failed",
        "<plist><dict>",
        "bplist00",
        "<plist><array/></plist>",
        listOf("<string>image</string>"),
        listOf(image(ram, "<dict><key>mount-point</key><string>/A</string></dict>")),
        "<plist><dict><key>images</key><dict/></dict></plist>",
        deep};
    for (const auto& list : noLists) {
        EXPECT_THROW((void)HDIUtilInfoParser::ramImages(list), PropertyListError) << list.substr(0, 200);
    }
}

class InventoryTest : public test::MacTest {};

TEST_F(InventoryTest, AListedDiskCarriesWhatTheSystemKnowsOfIt) {
    auto& foreign = mac->attachForeign("ram://4096", "Theirs");
    foreign.attachment = 77;
    foreign.volume->available = 1001; // of 1000
    mac->attachForeign("/Users/me/Other.dmg", "Image");
    auto& unmounted = mac->attachForeign("ram://2048", "Gone");
    unmounted.volume.reset();
    auto& ours = mac->attachForeign("ram://8192", "Ours");
    const auto instance = UUID::random();
    ours.volume->mark = instance.text();
    ours.volume->mountPoint = mounts / "Ours";

    const auto disks = services().list->list();
    ASSERT_EQ(disks.size(), 3U);
    EXPECT_EQ(disks[0],
              (RamDisk{.device = DeviceIdentifier::wholeDisk(4),
                       .name = "Theirs",
                       .capacity = ByteCount{2097152},
                       .mountPoint = "/Volumes/Theirs",
                       .fileSystemName = "Mac OS Extended",
                       .fileSystem = FileSystem::hfsPlus,
                       .usage = VolumeUsage{ByteCount{1000}, ByteCount{1000}},
                       .isEncrypted = false,
                       .memoryFootprint = ByteCount::of(104, ByteCount::Unit::mebibyte),
                       .attachment = 77,
                       .devices = {DeviceIdentifier::wholeDisk(4), *DeviceIdentifier::make("disk4s1")}}));
    EXPECT_EQ(disks[1], (RamDisk{.device = DeviceIdentifier::wholeDisk(6),
                                 .name = "Unmounted disk6",
                                 .capacity = ByteCount{1048576},
                                 .memoryFootprint = ByteCount::of(106, ByteCount::Unit::mebibyte),
                                 .attachment = unmounted.attachment,
                                 .devices = {DeviceIdentifier::wholeDisk(6)}}));
    EXPECT_TRUE(disks[2].isCreatedByRamDisk);
    EXPECT_EQ(disks[2].instance, instance);
    EXPECT_EQ(disks[2].access, VolumeAccess::onlyMe);
}

TEST_F(InventoryTest, ADiskIsKnownByEachOfItsDevicesInWhicheverOrderTheyAreListed) {
    mac->listsContainersFirst = true;
    for (const bool hasHints : {true, false}) {
        mac->hasContentHints = hasHints;
        const auto made = services().create->execute({.name = "A", .fileSystem = FileSystem::apfs}).ramDisk;
        EXPECT_EQ(made.device.bsdName(), hasHints ? "disk4" : "disk5");
        for (const auto* device : {"disk4", "disk5", "disk5s1"}) {
            EXPECT_EQ(services().list->resolve(RamDiskReference::parse(device)), made);
        }
        services().eject->eject(made, Force::no);
        EXPECT_TRUE(mac->images.empty());
    }
}

TEST_F(InventoryTest, AVolumeThatCannotBeAskedIsNamedByItsFolder) {
    const auto output =
        test::succeeds(listOf(image(path("ram://8"), entity("/dev/disk5", "/Volumes/Sile\u0301nt/"))),
                       "hdiutil: WARNING: noise\n");
    mac->script("/usr/bin/hdiutil info -plist", output);
    const auto disks = services().list->list();
    ASSERT_EQ(disks.size(), 1U);
    EXPECT_EQ(disks[0].name, "Sile\u0301nt");
    // The file systems of macOS take the other spelling for the same.
    mac->script("/usr/bin/hdiutil info -plist", output);
    EXPECT_EQ(services().list->resolve(RamDiskReference::parse("/Volumes/Sil\u00e9nt")), disks[0]);
    EXPECT_FALSE(disks[0].usage || disks[0].fileSystem || disks[0].memoryFootprint || disks[0].attachment);
}

TEST_F(InventoryTest, AListThatCannotBeReadIsAnError) {
    for (const auto& [output, reason] :
         {std::pair(test::fails(1, "hdiutil: info failed\n"), "hdiutil: hdiutil: info failed"),
          std::pair(test::succeeds("nothing"), "The property list cannot be read.")}) {
        mac->script("/usr/bin/hdiutil info -plist", output);
        EXPECT_EQ(textOf([&] { (void)services().list->list(); }),
                  std::string("Could not read the list of RAM disks: ") + reason);
    }
}

TEST(LsofVolumeUsersTest, ProcessesAreReadOnceInOrder) {
    const struct {
        const char* text;
        std::vector<VolumeUser> users;
    } rows[] = {
        {"p42\ncPreview\np7\ncFinder\n", {{42, "Preview"}, {7, "Finder"}}},
        {"p42\ncPreview\nf3\nn/Volumes/A/x\np42\ncPreview\n", {{42, "Preview"}}},
        {"p+42\ncA B\np-1\ncminus", {{42, "A B"}, {-1, "minus"}}},
        {"pforty\ncLost\np99999999999\ncLost\np+-3\ncLost\np\ncLost\np8\ncKept\n", {{8, "Kept"}}},
        {"p1\np2\nctwo\n", {{1, ""}, {2, "two"}}},
        {"cNobody\n\nR1\n", {}},
        {"p9\ncCode\\x20Helper\\x20(R\\\\x41)\\x20\\xc3\\xbc\\t\n", {{9, "Code Helper (R\\x41) ü\t"}}},
        {"p9\nc\\xzz\\x4\\q\\xff\\\n", {{9, "\\xzz\\x4\\q\uFFFD\\"}}},
        {"", {}},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(parseLsofFields(row.text), row.users) << row.text;
    }
}

TEST(LsofVolumeUsersTest, NothingOpenIsNoFailure) {
    const auto runner = std::make_shared<test::ScriptedRunner>();
    LsofVolumeUsers users(runner, "/usr/sbin/lsof");
    const std::string command = "/usr/sbin/lsof -F pc +f -- /Volumes/A";
    const auto ask = [&](CommandOutput output) {
        runner->once(command, std::move(output));
        return users.users("/Volumes/A");
    };
    EXPECT_TRUE(ask({1, "", ""}).empty());
    EXPECT_TRUE(ask({1, "",
                     "lsof: WARNING: can't stat() smbfs file system /Volumes/Share\n"
                     "      Output information may be incomplete.\n"})
                    .empty());
    EXPECT_THAT(ask({1, "p3\ncEditor\n", "lsof: WARNING: noise\n"}), ElementsAre(VolumeUser{3, "Editor"}));
    EXPECT_EQ(runner->commands.back().timeout, 30.0);
    EXPECT_THROW((void)ask({1, "", "lsof: status error on /Volumes/A: No such file or directory\n"}),
                 CommandFailure);
    EXPECT_THROW((void)ask({137, "", "", 9}), CommandFailure);
}

} // namespace
} // namespace ramdisk
