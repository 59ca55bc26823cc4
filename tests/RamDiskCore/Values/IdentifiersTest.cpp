#include "RamDiskCore/Values/DeviceIdentifier.h"
#include "RamDiskCore/Values/RamDiskReference.h"
#include "RamDiskCore/Values/UUID.h"
#include "tests/support/Testing.h"

namespace ramdisk::test {
namespace {

TEST(DeviceIdentifierTest, AcceptsDeviceNamesOnly) {
    for (const auto* name : {"disk0", "disk5", "disk3s1", "disk12s3s1", "disk99999999999999999999"}) {
        const auto device = DeviceIdentifier::make(name);
        ASSERT_TRUE(device) << name;
        EXPECT_EQ(device->bsdName(), name);
    }
    for (const auto* name : {"", "disk", "disks1", "disk5s", "disk5s1s", "disk5x", "disk 5", "/dev/disk5",
                             "Disk5", "rdisk5", "disk5\n", "disk-1", "disk٥"}) {
        EXPECT_FALSE(DeviceIdentifier::make(name)) << name;
    }
}

TEST(DeviceIdentifierTest, OrdersByNumber) {
    const std::array ordered{"disk0",   "disk2",    "disk02", "disk2s1",
                             "disk2s9", "disk2s10", "disk10", "disk99999999999999999999"};
    for (std::size_t left = 0; left < ordered.size(); ++left) {
        for (std::size_t right = 0; right < ordered.size(); ++right) {
            const auto order =
                *DeviceIdentifier::make(ordered.at(left)) <=> *DeviceIdentifier::make(ordered.at(right));
            const bool leadingZero = left + right == 3 && left != right && left != 0 && right != 0;
            if (leadingZero) {
                EXPECT_TRUE(order != 0); // equal numbers, different names
            } else {
                EXPECT_EQ(order, left <=> right) << ordered.at(left) << " " << ordered.at(right);
            }
        }
    }
}

TEST(RamDiskReferenceTest, ReadsWhatAUserTyped) {
    using Reference = RamDiskReference;
    const auto disk5 = DeviceIdentifier::wholeDisk(5);
    EXPECT_EQ(Reference::parse("disk5"), Reference{Reference::Device{disk5}});
    EXPECT_EQ(Reference::parse("/dev/disk5"), Reference{Reference::Device{disk5}});
    EXPECT_EQ(Reference::parse("/dev/shm"), Reference{Reference::MountPoint{"/dev/shm"}});
    EXPECT_EQ(Reference::parse("Volumes/X"), Reference{Reference::MountPoint{"Volumes/X"}});
    EXPECT_EQ(Reference::parse("disk five"), Reference{Reference::Name{"disk five"}});
    EXPECT_EQ(Reference::parse(""), Reference{Reference::Name{""}});
    EXPECT_EQ(Reference::parse("/dev/disk5").text(), "disk5");
    EXPECT_EQ(Reference::parse("/Volumes/RAM Disk/").text(), "/Volumes/RAM Disk/");
}

TEST(UUIDTest, ReadsBothCasesAndWritesUpperCase) {
    const auto uuid = UUID::parse("0f1e2d3c-4b5a-6978-8796-a5b4c3d2e1f0");
    ASSERT_TRUE(uuid);
    EXPECT_EQ(uuid->text(), "0F1E2D3C-4B5A-6978-8796-A5B4C3D2E1F0");
    EXPECT_EQ(UUID::parse(uuid->text()), uuid);
    for (const auto* text :
         {"", "0f1e2d3c-4b5a-6978-8796-a5b4c3d2e1f", "0f1e2d3c-4b5a-6978-8796-a5b4c3d2e1f00",
          "0f1e2d3c4-b5a-6978-8796-a5b4c3d2e1f0", "0g1e2d3c-4b5a-6978-8796-a5b4c3d2e1f0",
          "0f1e2d3c-4b5a-6978-8796-a5b4c3d2e1f-", "{f1e2d3c-4b5a-6978-8796-a5b4c3d2e1f}"}) {
        EXPECT_FALSE(UUID::parse(text)) << text;
    }
}

TEST(UUIDTest, RandomOnesAreVersionFourAndDiffer) {
    const auto one = UUID::random();
    EXPECT_NE(one, UUID::random());
    EXPECT_EQ(one.text()[14], '4');
    EXPECT_NE(std::string_view("89AB").find(one.text()[19]), std::string_view::npos);
}

} // namespace
} // namespace ramdisk::test
