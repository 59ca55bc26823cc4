#include "RamDiskInfrastructure/MacTools/RamDeviceAllocator.h"

#include "tests/RamDiskInfrastructure/MacTools/MacTest.h"
#include "tests/support/FakeMachine.h"

namespace ramdisk {
namespace {

using testing::ElementsAre;
using AttachMethod = RamDeviceAllocator::AttachMethod;

/// All ways to attach and all endings of a detach are WholeMacTest's.
class RamDeviceAllocatorTest : public test::MacTest {
protected:
    RamDeviceAllocator allocator(AttachMethod method = AttachMethod::classic) {
        return RamDeviceAllocator({mac,
                                   method,
                                   adapters.privateMounts,
                                   RamDeviceAllocator::attachedInListing(mac),
                                   adapters.media,
                                   {}});
    }
    std::string releasing(std::optional<std::uint64_t> attachment) {
        return textOf([&] { allocator().release(disk4, Force::no, attachment); });
    }

    const DeviceIdentifier disk4 = DeviceIdentifier::wholeDisk(4);
    const std::string isGone = "No RAM disk matches “disk4”.";
};

TEST_F(RamDeviceAllocatorTest, SizesAreRoundedUpToSectors) {
    const std::pair<std::uint64_t, const char*> rows[] = {{1, "ram://1"},
                                                          {512, "ram://1"},
                                                          {513, "ram://2"},
                                                          {18446744073709551615U, "ram://36028797018963968"}};
    for (const auto& [bytes, address] : rows) {
        (void)allocator().allocate(ByteCount{bytes});
        EXPECT_EQ(mac->images.back().path, address);
        EXPECT_THAT(allocator().plan(ByteCount{bytes}),
                    ElementsAre(std::string("/usr/bin/hdiutil attach -nomount ") + address));
    }
}

TEST_F(RamDeviceAllocatorTest, TheClassicAttachTellsWhyItFailedAlsoWhereTheNewerOneComesFirst) {
    auto newer = allocator(AttachMethod::diskImages2);
    const ByteCount size{1024};
    mac->newerAttach = test::ScriptedMac::NewerAttach::isUnknown;
    EXPECT_THAT(newer.plan(size), ElementsAre("/usr/sbin/diskutil image attach --noMount ram://2, or where "
                                              "that fails /usr/bin/hdiutil attach -nomount ram://2"));
    const std::pair<CommandOutput, const char*> rows[] = {
        {test::fails(1, "hdiutil: WARNING: deprecated\nhdiutil: attach failed - Cannot allocate memory\n"),
         "hdiutil: hdiutil: attach failed - Cannot allocate memory"},
        {test::succeeds("attached\n"), "No device was reported (attached\n)"}};
    for (const auto& [output, reason] : rows) {
        mac->script("/usr/bin/hdiutil attach -nomount ram://2", output);
        EXPECT_EQ(textOf([&] { (void)newer.allocate(size); }),
                  std::string("Could not allocate memory for the RAM disk: ") + reason);
    }
}

TEST_F(RamDeviceAllocatorTest, WhatAnAttachMadeIsFoundInTheListAndElseTakenBack) {
    using Newer = test::ScriptedMac::NewerAttach;
    const std::string list = "hdiutil info -plist";
    const std::string newer = "diskutil image attach --noMount ram://2";
    const std::string classic = "hdiutil attach -nomount ram://2";
    const std::string detach = "hdiutil detach /dev/disk5";
    const struct {
        Newer newer;
        bool isSilent;
        std::vector<std::string> commands;
    } rows[] = {{Newer::works, false, {list, newer, list}},
                {Newer::works, true, {list, newer, list}},
                {Newer::isUnknown, false, {list, newer, classic}},
                {Newer::isUnknown, true, {list, newer, classic, list}},
                {Newer::isNotListed, false, {list, newer, list, detach, classic}}};
    // Somebody's of the same size is never taken for it.
    mac->attachForeign("ram://2", "Theirs").volume->mountPoint.reset();
    for (const auto& row : rows) {
        mac->newerAttach = row.newer;
        mac->attachesSilently = row.isSilent;
        EXPECT_EQ(allocator(AttachMethod::diskImages2).allocate(ByteCount{1024}).bsdName(), "disk5");
        EXPECT_EQ(ran(), row.commands);
        ASSERT_EQ(mac->images.size(), 2U);
        mac->images.pop_back();
    }
    // Nor is the disk of somebody that the tool happens to name.
    mac->script("/usr/bin/hdiutil attach -nomount ram://2", test::succeeds("/dev/disk4 is busy\n"));
    EXPECT_EQ(textOf([&] { (void)allocator().allocate(ByteCount{1024}); }),
              "Could not allocate memory for the RAM disk: No device was reported (/dev/disk4 is busy\n)");
    for (int attempt = 1; attempt <= 6; ++attempt) {
        mac->script("/usr/bin/hdiutil detach /dev/disk5",
                    test::fails(16, "hdiutil: couldn't eject \"disk5\"\n"));
    }
    EXPECT_EQ(textOf([&] { (void)allocator(AttachMethod::diskImages2).allocate(ByteCount{1024}); }),
              "Could not allocate memory for the RAM disk: disk5 is not in the list of disk images, but the "
              "system still has it: hdiutil: hdiutil: couldn't eject \"disk5\"");
}

TEST_F(RamDeviceAllocatorTest, ADetachThatFailsIsTriedAgainOnceItsVolumeIsUnmountedAndElseNamesTheDevice) {
    using Detaching = test::ScriptedMac::Detaching;
    const struct {
        Detaching detaching;
        std::size_t attempts;
        std::string text;
    } rows[] = {
        {Detaching::busyAtFirst, 2, "nothing was thrown"},
        {Detaching::busyAfterUnmount, 6,
         "The disk is in use: disk4 is unmounted, but it still holds its memory. Only by the name disk4 is "
         "it "
         "found now, as in `tramdisk eject disk4`. hdiutil: hdiutil: couldn't eject \"disk4\" - Resource "
         "busy"},
        {Detaching::busy, 1,
         "The disk is in use: hdiutil: hdiutil: couldn't unmount \"disk4\" - Resource busy"},
        {Detaching::leavesTheList, 6,
         "The disk is in use: disk4 is not in the list of disk images, but the system still has it: hdiutil: "
         "hdiutil: detach failed - internal error"},
        {Detaching::worksButSaysItFailed, 1, isGone},
    };
    for (const auto& row : rows) {
        for (const bool isKnown : {true, false}) {
            mac->images.clear();
            auto& image = mac->attachForeign("ram://2", "A");
            image.detaching = row.detaching;
            std::filesystem::create_directories(mounts / "Left");
            EXPECT_EQ(releasing(isKnown ? std::optional(image.attachment) : std::nullopt), row.text);
            const auto commands = ran();
            EXPECT_EQ(std::count(commands.begin(), commands.end(), "hdiutil detach /dev/disk4"),
                      row.attempts);
            EXPECT_FALSE(std::filesystem::exists(mounts / "Left")) << row.text;
        }
    }
}

TEST_F(RamDeviceAllocatorTest, AFailedDetachOfADeviceThatIsStillListedTellsWhy) {
    (void)allocator().allocate(ByteCount{1024});
    // A list that cannot be read does not turn a failed eject into a finished one.
    for (const bool hasList : {true, false}) {
        mac->script("/usr/bin/hdiutil detach /dev/disk4", test::fails(1, "hdiutil: error 5\n"));
        if (!hasList) {
            mac->script("/usr/bin/hdiutil info -plist", test::fails(1, "hdiutil: info failed\n"));
        }
        EXPECT_EQ(test::failureOf([&] { allocator().release(disk4, Force::no, {}); }),
                  RamDiskError(
                      RamDiskError::EjectFailed{disk4, "hdiutil: hdiutil: error 5", EjectObstacle::other}));
    }
    EXPECT_EQ(mac->images.size(), 1U);
}

TEST_F(RamDeviceAllocatorTest, ANewerAttachmentOfTheSameNameIsLeftAlone) {
    (void)allocator().allocate(ByteCount{1024});
    const auto attachment = mac->images.front().attachment;
    (void)ran();
    std::filesystem::create_directories(mounts / "Left");
    EXPECT_EQ(releasing(attachment + 1), isGone);
    expectNoMountPoints();
    ASSERT_TRUE(mac->commands.empty());

    // The name changes hands while the detach fails: what was asked for is gone.
    mac->script("/usr/bin/hdiutil detach /dev/disk4", test::fails(1, "hdiutil: No such file or directory\n"));
    mac->meanwhile = [&] { ++mac->images.front().attachment; };
    EXPECT_EQ(releasing(attachment), isGone);
    EXPECT_EQ(mac->images.size(), 1U);
}

} // namespace
} // namespace ramdisk
