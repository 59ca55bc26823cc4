#include "tests/support/FakeMachine.h"
#include "tests/support/Testing.h"

namespace ramdisk {
namespace {

using test::failureOf;
using test::FakeMachine;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ListAndEjectTest : public ::testing::Test {
protected:
    void eject(const RamDisk& disk, Force force) { EjectRamDiskUseCase(machine, machine).eject(disk, force); }
    static DeviceIdentifier disk(unsigned number) { return DeviceIdentifier::wholeDisk(number); }
    std::string ejectCase(const RamDisk& disk) {
        return std::string(failureOf([&] { eject(disk, Force::yes); }).caseName());
    }

    std::shared_ptr<FakeMachine> machine = std::make_shared<FakeMachine>();
    ListRamDisksUseCase disks{machine};
};

TEST_F(ListAndEjectTest, AReferenceNamesOneDisk) {
    machine->attach(4, "Café");
    machine->attach(5, "Build").mountPoint = "/Volumes/Build/";
    machine->attach(6, "Unmounted").mountPoint.reset();
    machine->attach(7, "Layered").devices = {disk(9), *DeviceIdentifier::make("disk9s1"), disk(7)};
    const struct {
        const char* reference;
        const char* device; // null when nothing matches
    } rows[] = {{"disk4", "disk4"},
                {"/dev/disk5", "disk5"},
                {"disk4s1", nullptr},
                {"disk9s1", "disk7"},
                {" CAFE ", "disk4"},
                {"unmounted", "disk6"},
                {"Buil", nullptr},
                {"/Volumes/Café", "disk4"},
                {"/Volumes/cafe", nullptr},
                {"/Volumes/Café/", "disk4"},
                {"/Volumes/./Café//", "disk4"},
                {"/Volumes/Other/../Build/.", "disk5"},
                {".", nullptr},
                {"/Volumes/Cafe\u0301", nullptr},
                {"/Volumes", nullptr},
                {"/", nullptr}};
    for (const auto& row : rows) { // paths are taken to the letter
        const auto reference = RamDiskReference::parse(row.reference);
        const auto resolve = [&] { return disks.resolve(reference); };
        if (row.device != nullptr) {
            EXPECT_EQ(resolve().device.bsdName(), row.device) << row.reference;
        } else {
            EXPECT_EQ(failureOf(resolve), RamDiskError(RamDiskError::NotFound{reference})) << row.reference;
        }
    }
}

TEST_F(ListAndEjectTest, ANameOfSeveralDisksNamesThemAll) {
    machine->attach(10, "RAMDisk");
    machine->attach(4, "Other");
    machine->attach(2, "ramdisk");
    const auto reference = RamDiskReference::parse("ramdisk");
    EXPECT_EQ(failureOf([&] { return disks.resolve(reference); }),
              RamDiskError(RamDiskError::AmbiguousReference{
                  reference, {DeviceIdentifier::wholeDisk(10), DeviceIdentifier::wholeDisk(2)}}));
    EXPECT_EQ(disks.resolve(RamDiskReference::parse("disk2")).name, "ramdisk");
}

TEST_F(ListAndEjectTest, EjectsExactlyTheDiskThatWasListed) {
    const RamDisk old = machine->attach(4, "Old", 1);
    machine->disks.clear();
    EXPECT_EQ(ejectCase(old), "notFound");
    machine->attach(4, "New", 2); // took over the device name
    EXPECT_EQ(ejectCase(old), "notFound");
    EXPECT_THAT(machine->steps, IsEmpty());

    eject(RamDisk(machine->disks.at(0)), Force::no);
    RamDisk unknown = machine->attach(4, "Disk", 3);
    unknown.attachment.reset(); // does not stand in the way
    eject(unknown, Force::yes);
    EXPECT_THAT(machine->disks, IsEmpty());
    EXPECT_THAT(machine->steps, ElementsAre("release disk4", "release disk4 by force"));

    // Listed by another of its devices than before, it is known by its mark.
    RamDisk layered = machine->attach(5, "Layered");
    layered.devices = {disk(5), disk(9)};
    layered.instance = UUID::random();
    auto& listed = machine->disks.back() = layered;
    listed.device = disk(9);
    listed.instance = UUID::random();
    EXPECT_EQ(ejectCase(layered), "notFound");
    listed.instance = layered.instance;
    eject(layered, Force::no);
    EXPECT_EQ(machine->steps.back(), "release disk9");
}

TEST_F(ListAndEjectTest, EjectingAllGoesOnAfterAFailureAndSparesOtherProgramsDisks) {
    machine->attach(4, "First");
    const RamDisk busy = machine->attach(5, "Busy");
    machine->attach(6, "Foreign").isCreatedByRamDisk = false;
    machine->attach(7, "Last");
    const RamDiskError error(RamDiskError::EjectFailed{busy.device, "busy", EjectObstacle::busy});
    machine->releaseFailures.emplace(busy.device, error);

    const auto result = EjectRamDiskUseCase(machine, machine).ejectAll(Force::no);
    ASSERT_EQ(result.ejected.size(), 2U);
    EXPECT_EQ(result.ejected[0].name, "First");
    EXPECT_EQ(result.ejected[1].name, "Last");
    EXPECT_EQ(result.outcomes.size(), 2U);
    EXPECT_EQ(result.failures, (std::vector{BatchEjectResult::Failure{busy, error}}));
    EXPECT_THAT(machine->attachedDevices(), ElementsAre("disk5", "disk6"));
    EXPECT_THAT(machine->steps, ElementsAre("release disk4", "release disk5", "release disk7"));

    std::erase_if(machine->disks, [](const RamDisk& disk) { return disk.isCreatedByRamDisk; });
    EXPECT_EQ(EjectRamDiskUseCase(machine, machine).ejectAll(Force::yes), BatchEjectResult{});
}

} // namespace
} // namespace ramdisk
