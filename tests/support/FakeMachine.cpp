#include "tests/support/FakeMachine.h"

#include <algorithm>
#include <stdexcept>

namespace ramdisk::test {

namespace {

void throwIfSet(const std::optional<RamDiskError>& failure) {
    if (failure) {
        throw RamDiskError(*failure);
    }
}

} // namespace

void FakeMachine::note(const std::string& step) {
    steps.push_back(step);
    if (meanwhile) {
        meanwhile(step);
    }
}

RamDisk& FakeMachine::attach(unsigned number, const std::string& name, std::uint64_t attachment) {
    return disks.emplace_back(RamDisk{.device = DeviceIdentifier::wholeDisk(number),
                                      .name = name,
                                      .capacity = ByteCount::of(1, ByteCount::Unit::gibibyte),
                                      .mountPoint = volumes / name,
                                      .isCreatedByRamDisk = true,
                                      .attachment = attachment});
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

DeviceIdentifier FakeMachine::allocate(ByteCount size) {
    note("allocate " + std::to_string(size.bytes));
    throwIfSet(allocationFailure);
    unsigned number = 4;
    while (find(DeviceIdentifier::wholeDisk(number)) != nullptr) {
        ++number;
    }
    return disks
        .emplace_back(RamDisk{.device = DeviceIdentifier::wholeDisk(number),
                              .name = {},
                              .capacity = size,
                              .attachment = 100 + number})
        .device;
}

void FakeMachine::settle(const DeviceIdentifier& device) {
    note("settle " + device.bsdName());
    throwIfSet(settlingFailure);
}

ReleaseOutcome FakeMachine::release(const DeviceIdentifier& device, Force force,
                                    std::optional<std::uint64_t> attachment) {
    note("release " + device.bsdName() + (force == Force::yes ? " by force" : ""));
    if (const auto failure = releaseFailures.find(device); failure != releaseFailures.end()) {
        throw RamDiskError(failure->second);
    }
    const auto* disk = find(device);
    if (disk == nullptr || (attachment && disk->attachment != attachment)) {
        throw RamDiskError(RamDiskError::NotFound{RamDiskReference{RamDiskReference::Device{device}}});
    }
    if (hasFolders && disk->mountPoint) {
        std::filesystem::remove_all(*disk->mountPoint);
    }
    std::erase_if(disks, [&](const RamDisk& candidate) { return candidate.device == device; });
    return {};
}

void FakeMachine::requireSupport(const RamDiskSpecification& /*specification*/) const {
    throwIfSet(unsupported);
}

void FakeMachine::prepare(const RamDiskSpecification& /*specification*/) {
    throwIfSet(preparationFailure);
}

std::filesystem::path FakeMachine::format(const DeviceIdentifier& device,
                                          const RamDiskSpecification& specification,
                                          const VolumeProtection& protection) {
    note("format " + device.bsdName() + " as " + specification.name);
    throwIfSet(formattingFailure);
    auto& disk = *find(device);
    disk.name = specification.name;
    disk.mountPoint = volumes / specification.name;
    disk.fileSystem = specification.fileSystem;
    disk.isEncrypted = protection.passphrase() != nullptr;
    disk.isCreatedByRamDisk = true;
    disk.instance = UUID::random();
    disk.access = specification.access;
    if (hasFolders) {
        std::filesystem::create_directory(*disk.mountPoint);
    }
    return *disk.mountPoint;
}

std::vector<RamDisk> FakeMachine::list() {
    throwIfSet(listingFailure);
    return hidesNewDisks ? std::vector<RamDisk>{} : disks;
}

void FakeMachine::set(SearchIndexing indexing, const std::filesystem::path& volume) {
    note((indexing == SearchIndexing::off ? "index off " : "index on ") + volume.string());
    throwIfSet(indexingFailure);
}

VolumePassphrase FakeMachine::generate() {
    note("generate");
    throwIfSet(passphraseFailure);
    return VolumePassphrase("open sesame");
}

std::set<std::string> FakeMachine::volumeNames(const std::optional<std::filesystem::path>& excluding) const {
    std::set<std::string> names;
    for (const auto& disk : disks) {
        if (disk.mountPoint && disk.mountPoint != excluding) {
            names.insert(disk.name);
        }
    }
    return names;
}

void FakeMachine::copy(const std::filesystem::path& folder, const std::filesystem::path& volume) {
    note("copy " + folder.string() + " to " + volume.filename().string());
    if (failingFolders.contains(folder.string())) {
        throw RamDiskError(RamDiskError::ContentsTransferFailed{"no such folder"});
    }
}

void FakeMachine::make(const std::string& relativePath, const std::filesystem::path& volume) {
    note("make " + relativePath + " on " + volume.filename().string());
    if (failingFolders.contains(relativePath)) {
        throw RamDiskError(RamDiskError::FolderNotCreated{relativePath, "in the way"});
    }
}

RedirectPlace FakeMachine::place(const RedirectTarget& target) const {
    const auto& path = std::get<RedirectTarget::Folder>(target.value).path;
    return {path, path};
}

RedirectRestoreState FakeMachine::apply(const FolderRedirect& redirect,
                                        const std::filesystem::path& /*mountPoint*/, const Record& record) {
    const auto folder = place(redirect.target).nameOnDisk;
    note("redirect " + folder);
    if (failingFolders.contains(folder)) {
        throw std::runtime_error("read-only home");
    }
    const RedirectRestoreState state{RedirectRestoreState::LinkedFolder{{}, "there"}};
    record(state);
    return state;
}

std::optional<std::string> FakeMachine::undo(const FolderRedirect& redirect,
                                             const RedirectRestoreState& /*state*/, Force /*force*/) {
    note("undo " + place(redirect.target).nameOnDisk);
    return std::nullopt;
}

WriteBlocking::Outcome FakeMachine::block(const RamDisk& disk) {
    if (writers > 0) {
        --writers;
        return Outcome::busy;
    }
    note("block " + disk.name);
    return Outcome::blocked;
}

void FakeMachine::allow(const RamDisk& disk) noexcept {
    note("allow " + disk.name);
}

std::vector<std::string> FakeMachine::plan(ByteCount size) const {
    return {"would allocate " + std::to_string(size.bytes)};
}

std::vector<std::string> FakeMachine::plan(const RamDiskSpecification& specification) const {
    return {"would format as " + specification.name};
}

std::vector<std::string> FakeMachine::plan(SearchIndexing /*indexing*/) const {
    return {"would switch indexing"};
}

ValidationContextProvider contextProvider(const std::shared_ptr<FakeMachine>& machine) {
    return {machine, machine, machine};
}

CreateRamDiskUseCase createUseCase(const std::shared_ptr<FakeMachine>& machine) {
    return CreateRamDiskUseCase({machine, machine, machine, machine, machine, contextProvider(machine),
                                 RamDiskSpecificationValidator()});
}

RamDiskError failureOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const RamDiskError& error) {
        return error;
    }
    throw std::logic_error("nothing failed");
}

} // namespace ramdisk::test
