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
        return RamDeviceAllocator(
            {mac, method, nullptr, RamDeviceAllocator::attachedInListing(mac), adapters.media});
    }
    std::string releasing(std::uint64_t attachment) {
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
    mac->hasDiskImages2 = false;
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
    EXPECT_EQ(releasing(attachment + 1), isGone);
    ASSERT_TRUE(mac->commands.empty());

    // The name changes hands while the detach fails: what was asked for is gone.
    mac->script("/usr/bin/hdiutil detach /dev/disk4", test::fails(1, "hdiutil: No such file or directory\n"));
    mac->meanwhile = [&] { ++mac->images.front().attachment; };
    EXPECT_EQ(releasing(attachment), isGone);
    EXPECT_EQ(mac->images.size(), 1U);
}

} // namespace
} // namespace ramdisk
