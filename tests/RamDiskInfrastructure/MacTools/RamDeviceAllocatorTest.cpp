#include "RamDiskInfrastructure/MacTools/RamDeviceAllocator.h"

#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskUI/ErrorText.h"
#include "tests/support/ScriptedMac.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace ramdisk {
namespace {

using test::ScriptedMac;
using testing::ElementsAre;
using AttachMethod = RamDeviceAllocator::AttachMethod;

class RamDeviceAllocatorTests : public testing::Test {
protected:
    RamDeviceAllocator allocator(AttachMethod method = AttachMethod::classic) {
        return RamDeviceAllocator(
            {mac, method, nullptr, RamDeviceAllocator::attachedInListing(mac), test::mediaOn(mac)});
    }

    /// The text that a user sees of what `action` throws.
    template <typename Action>
    std::string textOf(Action action) {
        try {
            action();
        } catch (const RamDiskError& error) {
            return errorText(error);
        }
        return "nothing was thrown";
    }

    std::shared_ptr<ScriptedMac> mac = std::make_shared<ScriptedMac>();
    const DeviceIdentifier disk4 = DeviceIdentifier::wholeDisk(4);
};

TEST_F(RamDeviceAllocatorTests, SizesAreRoundedUpToSectors) {
    const struct {
        std::uint64_t bytes;
        const char* address;
    } rows[] = {{1, "ram://1"},
                {512, "ram://1"},
                {513, "ram://2"},
                {2147483648, "ram://4194304"},
                {18446744073709551615U, "ram://36028797018963968"}};
    for (const auto& row : rows) {
        const auto command = std::string("/usr/bin/hdiutil attach -nomount ") + row.address;
        mac->script(command, {0, "/dev/disk4          \t\t\n", "hdiutil: WARNING: deprecated\n"});
        EXPECT_EQ(allocator().allocate(ByteCount{row.bytes}).bsdName(), "disk4");
        EXPECT_THAT(allocator().plan(ByteCount{row.bytes}), ElementsAre(command));
    }
    for (const auto& command : mac->commands) {
        EXPECT_FALSE(command.timeout || command.standardInput);
    }
}

TEST_F(RamDeviceAllocatorTests, TheNewerAttachFallsBackToTheClassicOne) {
    EXPECT_EQ(allocator(AttachMethod::diskImages2).allocate(ByteCount{1024}), disk4);
    mac->hasDiskImages2 = false;
    EXPECT_EQ(allocator(AttachMethod::diskImages2).allocate(ByteCount{1024}).bsdName(), "disk5");
    EXPECT_THAT(mac->descriptions(), ElementsAre("/usr/sbin/diskutil image attach --noMount ram://2",
                                                 "/usr/sbin/diskutil image attach --noMount ram://2",
                                                 "/usr/bin/hdiutil attach -nomount ram://2"));
    EXPECT_THAT(allocator(AttachMethod::diskImages2).plan(ByteCount{1024}),
                ElementsAre("/usr/sbin/diskutil image attach --noMount ram://2, or where that fails "
                            "/usr/bin/hdiutil attach -nomount ram://2"));
}

TEST_F(RamDeviceAllocatorTests, AFailedAttachTellsTheClassicToolsReason) {
    mac->hasDiskImages2 = false;
    mac->script("/usr/bin/hdiutil attach -nomount ram://2",
                {1, "", "hdiutil: WARNING: deprecated\nhdiutil: attach failed - Cannot allocate memory\n"});
    EXPECT_EQ(textOf([&] { (void)allocator(AttachMethod::diskImages2).allocate(ByteCount{1024}); }),
              "Could not allocate memory for the RAM disk: hdiutil: hdiutil: attach failed - Cannot allocate "
              "memory");
    mac->script("/usr/bin/hdiutil attach -nomount ram://2", {0, "attached\n", ""});
    EXPECT_EQ(textOf([&] { (void)allocator().allocate(ByteCount{1024}); }),
              "Could not allocate memory for the RAM disk: No device was reported (attached\n)");
}

TEST_F(RamDeviceAllocatorTests, ReleasingDetachesAndForcesOnlyWhenAsked) {
    (void)allocator().allocate(ByteCount{1024});
    allocator().release(disk4, Force::no);
    (void)allocator().allocate(ByteCount{1024});
    mac->images.front().detaching = ScriptedMac::Detaching::busy;
    allocator().release(disk4, Force::yes);
    EXPECT_TRUE(mac->images.empty());
    EXPECT_EQ(mac->descriptions()[1], "/usr/bin/hdiutil detach /dev/disk4");
    EXPECT_EQ(mac->descriptions()[3], "/usr/bin/hdiutil detach -force /dev/disk4");
}

TEST_F(RamDeviceAllocatorTests, TheListDecidesWhatAFailedDetachMeans) {
    const auto release = [&] { allocator().release(disk4, Force::no); };
    const auto obstacle = [&] {
        try {
            release();
        } catch (const RamDiskError& error) {
            return std::get<RamDiskError::EjectFailed>(error.value()).obstacle;
        }
        throw std::logic_error("nothing was thrown");
    };
    (void)allocator().allocate(ByteCount{1024});
    auto& image = mac->images.front();
    image.detaching = ScriptedMac::Detaching::busy;
    EXPECT_EQ(textOf(release),
              "The disk is in use: hdiutil: hdiutil: couldn't unmount \"disk4\" - Resource busy");
    EXPECT_EQ(obstacle(), EjectObstacle::busy);
    image.detaching = ScriptedMac::Detaching::busyAfterUnmount;
    EXPECT_EQ(textOf(release),
              "The disk is in use: hdiutil: hdiutil: couldn't eject \"disk4\" - Resource busy");
    mac->script("/usr/bin/hdiutil detach /dev/disk4", {1, "", "hdiutil: detach failed - error 49168\n"});
    EXPECT_EQ(obstacle(), EjectObstacle::other);

    // A list that cannot be read does not turn a failed eject into a finished one.
    mac->script("/usr/bin/hdiutil detach /dev/disk4", {1, "", "hdiutil: detach failed - error 49168\n"});
    mac->script("/usr/bin/hdiutil info -plist", {1, "", "hdiutil: info failed\n"});
    EXPECT_EQ(textOf(release), "The disk is in use: hdiutil: hdiutil: detach failed - error 49168");

    image.detaching = ScriptedMac::Detaching::worksButSaysItFailed;
    EXPECT_EQ(textOf(release), "No RAM disk matches “disk4”.");
    EXPECT_EQ(textOf(release), "No RAM disk matches “disk4”.");
}

TEST_F(RamDeviceAllocatorTests, ANewerAttachmentOfTheSameNameIsLeftAlone) {
    (void)allocator().allocate(ByteCount{1024});
    const auto attachment = mac->images.front().attachment;
    mac->commands.clear();
    EXPECT_EQ(textOf([&] { allocator().release(disk4, Force::yes, attachment + 1); }),
              "No RAM disk matches “disk4”.");
    EXPECT_TRUE(mac->commands.empty());

    // The name changes hands while the detach fails: what was asked for is gone.
    mac->script("/usr/bin/hdiutil detach /dev/disk4",
                {1, "", "hdiutil: detach failed - No such file or directory\n"});
    mac->meanwhile = [&] { ++mac->images.front().attachment; };
    EXPECT_EQ(textOf([&] { allocator().release(disk4, Force::no, attachment); }),
              "No RAM disk matches “disk4”.");
    mac->meanwhile = nullptr;
    allocator().release(disk4, Force::no, mac->images.front().attachment);
    EXPECT_TRUE(mac->images.empty());
}

} // namespace
} // namespace ramdisk
