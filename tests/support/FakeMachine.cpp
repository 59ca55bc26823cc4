#include "tests/support/FakeMachine.h"

#include <algorithm>

namespace ramdisk::test {

namespace {

void throwIfSet(const std::optional<RamDiskError>& failure) {
    if (failure) {
        throw RamDiskError(*failure);
    }
}

} // namespace

RamDisk& FakeMachine::attach(unsigned number, const std::string& name, std::uint64_t attachment) {
    RamDisk disk{.device = DeviceIdentifier::wholeDisk(number),
                 .name = name,
                 .capacity = ByteCount::of(1, ByteCount::Unit::gibibyte)};
    disk.mountPoint = "/Volumes/" + name;
    disk.isCreatedByRamDisk = true;
    disk.attachment = attachment;
    return disks.emplace_back(std::move(disk));
}

RamDisk* FakeMachine::find(const DeviceIdentifier& device) {
    const auto found =
        std::find_if(disks.begin(), disks.end(), [&](const RamDisk& disk) { return disk.device == device; });
    return found == disks.end() ? nullptr : &*found;
}

std::set<std::string> FakeMachine::attachedDevices() const {
    std::set<std::string> names;
    for (const auto& disk : disks) {
        names.insert(disk.device.bsdName());
    }
    return names;
}

DeviceIdentifier FakeAllocator::allocate(ByteCount size) {
    machine_->steps.push_back("allocate " + std::to_string(size.bytes));
    throwIfSet(machine_->allocationFailure);
    unsigned number = 4;
    while (machine_->find(DeviceIdentifier::wholeDisk(number)) != nullptr) {
        ++number;
    }
    auto& disk = machine_->attach(number, "", 100 + number);
    disk.capacity = size;
    disk.mountPoint.reset();
    disk.isCreatedByRamDisk = false;
    return disk.device;
}

void FakeAllocator::settle(const DeviceIdentifier& device) {
    machine_->steps.push_back("settle " + device.bsdName());
    throwIfSet(machine_->settlingFailure);
}

ReleaseOutcome FakeAllocator::release(const DeviceIdentifier& device, Force force,
                                      std::optional<std::uint64_t> attachment) {
    machine_->steps.push_back("release " + device.bsdName() + (force == Force::yes ? " by force" : ""));
    if (const auto failure = machine_->releaseFailures.find(device);
        failure != machine_->releaseFailures.end()) {
        throw RamDiskError(failure->second);
    }
    const auto* disk = machine_->find(device);
    if (disk == nullptr || (attachment && disk->attachment != attachment)) {
        throw RamDiskError(RamDiskError::NotFound{RamDiskReference{RamDiskReference::Device{device}}});
    }
    std::erase_if(machine_->disks, [&](const RamDisk& candidate) { return candidate.device == device; });
    return {};
}

std::vector<std::string> FakeAllocator::plan(ByteCount size) const {
    return {"would allocate " + std::to_string(size.bytes)};
}

void FakeFormatter::requireSupport(const RamDiskSpecification& /*specification*/) const {
    throwIfSet(machine_->unsupported);
}

void FakeFormatter::prepare(const RamDiskSpecification& /*specification*/) {
    throwIfSet(machine_->preparationFailure);
}

std::filesystem::path FakeFormatter::format(const DeviceIdentifier& device,
                                            const RamDiskSpecification& specification,
                                            const VolumeProtection& protection) {
    machine_->steps.push_back("format " + device.bsdName() + " as " + specification.name);
    throwIfSet(machine_->formattingFailure);
    auto* disk = machine_->find(device);
    if (disk == nullptr) {
        throw RamDiskError(RamDiskError::FormattingFailed{"no such device"});
    }
    disk->name = specification.name;
    disk->mountPoint = "/Volumes/" + specification.name;
    disk->fileSystem = specification.fileSystem;
    disk->isEncrypted = protection.passphrase() != nullptr;
    disk->isCreatedByRamDisk = true;
    disk->instance = UUID::random();
    disk->access = specification.access;
    return *disk->mountPoint;
}

std::vector<std::string> FakeFormatter::plan(const RamDiskSpecification& specification) const {
    return {"would format as " + specification.name};
}

std::vector<RamDisk> FakeInventory::list() {
    throwIfSet(machine_->listingFailure);
    return machine_->hidesNewDisks ? std::vector<RamDisk>{} : machine_->disks;
}

void FakeIndexing::set(SearchIndexing indexing, const std::filesystem::path& volume) {
    machine_->steps.push_back((indexing == SearchIndexing::off ? "index off " : "index on ")
                              + volume.string());
    throwIfSet(machine_->indexingFailure);
    states_[volume] = indexing;
}

std::optional<SearchIndexing> FakeIndexing::state(const std::filesystem::path& volume) {
    const auto found = states_.find(volume);
    return found == states_.end() ? std::nullopt : std::optional(found->second);
}

std::vector<std::string> FakeIndexing::plan(SearchIndexing /*indexing*/) const {
    return {"would switch indexing"};
}

VolumePassphrase FakePassphrases::generate() {
    machine_->steps.emplace_back("generate");
    throwIfSet(machine_->passphraseFailure);
    return VolumePassphrase("open sesame");
}

std::set<std::string> FakeVolumes::volumeNames(const std::optional<std::filesystem::path>& excluding) const {
    auto names = machine_->otherVolumes;
    for (const auto& disk : machine_->disks) {
        if (disk.mountPoint && disk.mountPoint != excluding) {
            names.insert(disk.name);
        }
    }
    return names;
}

ValidationContextProvider contextProvider(const std::shared_ptr<FakeMachine>& machine) {
    return {std::make_shared<FakeMemory>(machine), std::make_shared<FakeVolumes>(machine),
            std::make_shared<FakeStartupDisks>(machine)};
}

CreateRamDiskUseCase createUseCase(const std::shared_ptr<FakeMachine>& machine) {
    return CreateRamDiskUseCase(
        {std::make_shared<FakeAllocator>(machine), std::make_shared<FakeFormatter>(machine),
         std::make_shared<FakeInventory>(machine), std::make_shared<FakeIndexing>(machine),
         std::make_shared<FakePassphrases>(machine), contextProvider(machine),
         RamDiskSpecificationValidator()});
}

ListRamDisksUseCase listUseCase(const std::shared_ptr<FakeMachine>& machine) {
    return ListRamDisksUseCase(std::make_shared<FakeInventory>(machine));
}

EjectRamDiskUseCase ejectUseCase(const std::shared_ptr<FakeMachine>& machine) {
    return {std::make_shared<FakeAllocator>(machine), std::make_shared<FakeInventory>(machine)};
}

} // namespace ramdisk::test
