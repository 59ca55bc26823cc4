#include "tests/support/FakeMachine.h"
#include "tests/support/Testing.h"

namespace ramdisk::test {
namespace {

using Issue = ValidationIssue;

class CreateRamDiskUseCaseTest : public ::testing::Test {
protected:
    RamDiskError failureOf(const RamDiskSpecification& specification) {
        return test::failureOf([&] { createUseCase(machine).execute(specification); });
    }

    std::shared_ptr<FakeMachine> machine = std::make_shared<FakeMachine>();
    RamDiskSpecification encrypted{.name = "  Vault ",
                                   .fileSystem = FileSystem::apfs,
                                   .isEncrypted = true,
                                   .access = VolumeAccess::onlyMe};
};

TEST_F(CreateRamDiskUseCaseTest, GivesTheDiskAsItIsListed) {
    const auto result = createUseCase(machine).execute(encrypted);
    EXPECT_THAT(machine->steps, ElementsAre("generate", "allocate 1073741824", "format disk4 as Vault",
                                            "index off /Volumes/Vault", "settle disk4"));
    EXPECT_EQ(result.ramDisk, machine->disks.at(0));
    EXPECT_EQ(result.ramDisk.isEncrypted, true);
    EXPECT_EQ(result.ramDisk.access, VolumeAccess::onlyMe);
    EXPECT_THAT(result.warnings, IsEmpty());

    machine->steps.clear();
    createUseCase(machine).execute({.name = "Indexed", .isIndexingEnabled = true});
    EXPECT_THAT(machine->steps,
                ElementsAre("allocate 1073741824", "format disk5 as Indexed", "settle disk5"));
}

TEST_F(CreateRamDiskUseCaseTest, RefusesWithEveryErrorAndTouchesNothing) {
    machine->attach(4, "Taken");
    const RamDiskSpecification faulty{
        .name = "taken", .size = ByteCount{1}, .fileSystem = FileSystem::exFAT, .isEncrypted = true};
    const std::vector<Issue> issues{
        {Issue::NameInUse{"taken"}},
        {Issue::BelowMinimumSize{minimumSize(FileSystem::exFAT), FileSystem::exFAT}},
        {Issue::EncryptionUnsupported{FileSystem::exFAT}}};
    EXPECT_EQ(failureOf(faulty), RamDiskError(RamDiskError::InvalidSpecification{issues}));
    machine->unsupported = RamDiskError::FormattingFailed{"no such format here"};
    EXPECT_EQ(failureOf(encrypted), *machine->unsupported);
    machine->unsupported.reset();
    machine->preparationFailure = RamDiskError::FormattingFailed{"no driver for it here"};
    EXPECT_EQ(failureOf(encrypted), *machine->preparationFailure);
    EXPECT_THAT(machine->steps, IsEmpty());
}

TEST_F(CreateRamDiskUseCaseTest, TellsWarningsOfValidationBeforeThatOfTheIndex) {
    machine->memory.available = ByteCount{1};
    machine->indexingFailure = RamDiskError::EraseFailed{"not this one"};
    const auto result = createUseCase(machine).execute({});
    ASSERT_EQ(result.warnings.size(), 2U);
    EXPECT_EQ(result.warnings[0],
              CreationWarning{CreationWarning::Validation{{Issue::ExceedsAvailableMemory{ByteCount{1}}}}});
    EXPECT_EQ(result.warnings[1], CreationWarning{CreationWarning::IndexingNotDisabled{"not this one"}});
    EXPECT_EQ(machine->disks.size(), 1U);
}

TEST_F(CreateRamDiskUseCaseTest, AStepThatFailsIsReportedAndLeavesNoDevice) {
    const struct {
        std::optional<RamDiskError> FakeMachine::*step;
        RamDiskError error;
    } rows[] = {{&FakeMachine::passphraseFailure, RamDiskError::AllocationFailed{"no randomness"}},
                {&FakeMachine::allocationFailure, RamDiskError::AllocationFailed{"no memory"}},
                {&FakeMachine::formattingFailure, RamDiskError::FormattingFailed{"no format"}},
                {&FakeMachine::listingFailure, RamDiskError::InventoryUnavailable{"no list"}},
                {&FakeMachine::preparationFailure, RamDiskError::FormattingFailed{"no driver"}},
                {&FakeMachine::settlingFailure, RamDiskError::AllocationFailed{"not settled"}}};
    for (const auto& row : rows) {
        for (const bool isForeign : {false, true}) {
            machine = std::make_shared<FakeMachine>();
            machine->attach(4, "Bystander");
            machine->throwsForeignErrors = isForeign;
            (*machine).*row.step = row.error;
            EXPECT_EQ(failureOf(encrypted), row.error);
            EXPECT_THAT(machine->attachedDevices(), ElementsAre("disk4"));
        }
    }
}

TEST_F(CreateRamDiskUseCaseTest, AFailedCleanUpDoesNotHideWhyTheDiskWasNotMade) {
    machine->hidesNewDisks = true;
    EXPECT_EQ(failureOf(encrypted).caseName(), "notFound");
    EXPECT_THAT(machine->disks, IsEmpty());

    const auto device = DeviceIdentifier::wholeDisk(4);
    machine->releaseFailures.emplace(device, RamDiskError::EjectFailed{device, "stuck"});
    EXPECT_EQ(failureOf(encrypted).caseName(), "notFound");
    EXPECT_EQ(machine->steps.back(), "release disk4 by force");
}

TEST_F(CreateRamDiskUseCaseTest, APlanDescribesAndChangesNothing) {
    machine->memory.available = ByteCount{1};
    const auto plan = createUseCase(machine).plan(encrypted);
    EXPECT_THAT(plan.steps,
                ElementsAre("would allocate 1073741824", "would format as Vault", "would switch indexing"));
    EXPECT_EQ(plan.warnings.size(), 1U);
    EXPECT_THAT(machine->steps, IsEmpty());
}

TEST_F(CreateRamDiskUseCaseTest, AReconfiguredDiskDoesNotCollideWithItsOwnName) {
    const auto mountPoint = machine->attach(4, "Mine").mountPoint;
    machine->startupDisks = {"Startup"};
    const auto provider = contextProvider(machine);
    EXPECT_THAT(provider.current().mountedVolumeNames, ElementsAre("Mine"));
    EXPECT_THAT(provider.current(mountPoint).mountedVolumeNames, IsEmpty());
    EXPECT_THAT(provider.current().startupDiskNames, ElementsAre("Startup"));
    EXPECT_THAT(
        (ValidationContextProvider{provider.memory, provider.volumes, nullptr}.current().startupDiskNames),
        IsEmpty());
}

} // namespace
} // namespace ramdisk::test
