#include "RamDiskInfrastructure/MacTools/RamDeviceAllocator.h"

#include "tests/RamDiskInfrastructure/MacTools/MacTest.h"

#include <stdexcept>

namespace ramdisk {
namespace {

using testing::ElementsAre;
using AttachMethod = RamDeviceAllocator::AttachMethod;
using Detaching = test::ScriptedMac::Detaching;

class RamDeviceAllocatorTest : public test::MacTest {
protected:
    RamDeviceAllocator allocator(AttachMethod method = AttachMethod::classic) {
        return RamDeviceAllocator(
            {mac, method, nullptr, RamDeviceAllocator::attachedInListing(mac), adapters.media});
    }
    void release(std::optional<std::uint64_t> attachment = std::nullopt) {
        allocator().release(disk4, Force::no, attachment);
    }

    const DeviceIdentifier disk4 = DeviceIdentifier::wholeDisk(4);
    const std::string isGone = "No RAM disk matches “disk4”.";
};

TEST_F(RamDeviceAllocatorTest, SizesAreRoundedUpToSectors) {
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
        EXPECT_EQ(allocator().allocate(ByteCount{row.bytes}), disk4);
        EXPECT_THAT(allocator().plan(ByteCount{row.bytes}), ElementsAre(command));
    }
    for (const auto& command : mac->commands) {
        EXPECT_FALSE(command.timeout || command.standardInput);
    }
}

TEST_F(RamDeviceAllocatorTest, TheNewerAttachFallsBackToTheClassicOneWhichTellsWhyItFailed) {
    auto newer = allocator(AttachMethod::diskImages2);
    const ByteCount size{1024};
    EXPECT_EQ(newer.allocate(size), disk4);
    mac->hasDiskImages2 = false;
    EXPECT_EQ(newer.allocate(size).bsdName(), "disk5");
    EXPECT_THAT(ran(),
                ElementsAre("diskutil image attach --noMount ram://2",
                            "diskutil image attach --noMount ram://2", "hdiutil attach -nomount ram://2"));
    EXPECT_THAT(newer.plan(size), ElementsAre("/usr/sbin/diskutil image attach --noMount ram://2, or where "
                                              "that fails /usr/bin/hdiutil attach -nomount ram://2"));
    const std::string failed = "Could not allocate memory for the RAM disk: ";
    mac->script("/usr/bin/hdiutil attach -nomount ram://2",
                {1, "", "hdiutil: WARNING: deprecated\nhdiutil: attach failed - Cannot allocate memory\n"});
    EXPECT_EQ(textOf([&] { (void)newer.allocate(size); }),
              failed + "hdiutil: hdiutil: attach failed - Cannot allocate memory");
    mac->script("/usr/bin/hdiutil attach -nomount ram://2", {0, "attached\n", ""});
    EXPECT_EQ(textOf([&] { (void)newer.allocate(size); }), failed + "No device was reported (attached\n)");
}

TEST_F(RamDeviceAllocatorTest, ReleasingDetachesAndForcesOnlyWhenAsked) {
    for (const auto& [force, command] : {std::pair(Force::no, "hdiutil detach /dev/disk4"),
                                         {Force::yes, "hdiutil detach -force /dev/disk4"}}) {
        (void)allocator().allocate(ByteCount{1024});
        mac->images.front().detaching = force == Force::yes ? Detaching::busy : Detaching::works;
        (void)ran();
        allocator().release(disk4, force);
        EXPECT_TRUE(mac->images.empty());
        EXPECT_THAT(ran(), ElementsAre(command));
    }
}

TEST_F(RamDeviceAllocatorTest, TheListDecidesWhatAFailedDetachMeans) {
    (void)allocator().allocate(ByteCount{1024});
    const CommandOutput error5{1, "", "hdiutil: detach failed - error 5\n"};
    const CommandOutput noList{1, "", "hdiutil: info failed\n"};
    const struct {
        Detaching detaching;
        std::optional<CommandOutput> detach;
        std::optional<CommandOutput> list;
        const char* reason;
        EjectObstacle obstacle;
    } rows[] = {
        {Detaching::busy, {}, {}, "couldn't unmount \"disk4\" - Resource busy", EjectObstacle::busy},
        {Detaching::busyAfterUnmount,
         {},
         {},
         "couldn't eject \"disk4\" - Resource busy",
         EjectObstacle::busy},
        {Detaching::works, error5, {}, "detach failed - error 5", EjectObstacle::other},
        // A list that cannot be read does not turn a failed eject into a finished one.
        {Detaching::works, error5, noList, "detach failed - error 5", EjectObstacle::other},
    };
    for (const auto& row : rows) {
        mac->images.front().detaching = row.detaching;
        if (row.detach) {
            mac->script("/usr/bin/hdiutil detach /dev/disk4", *row.detach);
        }
        if (row.list) {
            mac->script("/usr/bin/hdiutil info -plist", *row.list);
        }
        try {
            release();
            ADD_FAILURE() << row.reason;
        } catch (const RamDiskError& error) {
            EXPECT_EQ(error, RamDiskError(RamDiskError::EjectFailed{
                                 disk4, std::string("hdiutil: hdiutil: ") + row.reason, row.obstacle}));
        }
    }
    mac->images.front().detaching = Detaching::worksButSaysItFailed;
    EXPECT_EQ(textOf([&] { release(); }), isGone);
    EXPECT_EQ(textOf([&] { release(); }), isGone);
}

TEST_F(RamDeviceAllocatorTest, ANewerAttachmentOfTheSameNameIsLeftAlone) {
    (void)allocator().allocate(ByteCount{1024});
    const auto attachment = mac->images.front().attachment;
    (void)ran();
    EXPECT_EQ(textOf([&] { release(attachment + 1); }), isGone);
    EXPECT_TRUE(mac->commands.empty());

    // The name changes hands while the detach fails: what was asked for is gone.
    mac->script("/usr/bin/hdiutil detach /dev/disk4",
                {1, "", "hdiutil: detach failed - No such file or directory\n"});
    mac->meanwhile = [&] { ++mac->images.front().attachment; };
    EXPECT_EQ(textOf([&] { release(attachment); }), isGone);
    mac->meanwhile = nullptr;
    release(mac->images.front().attachment);
    EXPECT_TRUE(mac->images.empty());
}

} // namespace
} // namespace ramdisk
