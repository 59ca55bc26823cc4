#pragma once

#include "RamDiskCore/Disks/CreateRamDiskUseCase.h"
#include "RamDiskCore/Disks/EjectRamDiskUseCase.h"
#include "RamDiskCore/Disks/ListRamDisksUseCase.h"
#include "RamDiskCore/Values/RamDiskError.h"

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace ramdisk::test {

/// A machine made of values: what is attached and mounted, and what fails. Its ports, below, share one
/// machine, so that each sees what the others do. A test sets the fields and reads `steps`.
struct FakeMachine {
    SystemMemory memory{.physical = ByteCount::of(16, ByteCount::Unit::gibibyte),
                        .available = ByteCount::of(16, ByteCount::Unit::gibibyte)};
    /// The attached devices. One that is not formatted yet has no name.
    std::vector<RamDisk> disks;
    /// Mounted volumes beside those of `disks`.
    std::set<std::string> otherVolumes;
    std::set<std::string> startupDisks;

    // What each step throws, where it is set.
    std::optional<RamDiskError> unsupported;
    std::optional<RamDiskError> preparationFailure;
    std::optional<RamDiskError> allocationFailure;
    std::optional<RamDiskError> formattingFailure;
    std::optional<RamDiskError> indexingFailure;
    std::optional<RamDiskError> listingFailure;
    std::optional<RamDiskError> settlingFailure;
    std::optional<RamDiskError> passphraseFailure;
    std::map<DeviceIdentifier, RamDiskError> releaseFailures;
    /// Finished disks do not show in the list.
    bool hidesNewDisks = false;

    /// What was done, in order, such as "allocate 1024" and "release disk4 by force".
    std::vector<std::string> steps;

    /// Attaches a mounted disk of this system and returns it as a listing would.
    RamDisk& attach(unsigned number, const std::string& name, std::uint64_t attachment = 1);

    [[nodiscard]] RamDisk* find(const DeviceIdentifier& device);
    [[nodiscard]] std::set<std::string> attachedDevices() const;
};

class FakeAllocator final : public RamDeviceAllocating {
public:
    explicit FakeAllocator(std::shared_ptr<FakeMachine> machine) : machine_(std::move(machine)) {}

    DeviceIdentifier allocate(ByteCount size) override;
    void settle(const DeviceIdentifier& device) override;
    ReleaseOutcome release(const DeviceIdentifier& device, Force force,
                           std::optional<std::uint64_t> attachment) override;
    std::vector<std::string> plan(ByteCount size) const override;

private:
    std::shared_ptr<FakeMachine> machine_;
};

class FakeFormatter final : public VolumeFormatting {
public:
    explicit FakeFormatter(std::shared_ptr<FakeMachine> machine) : machine_(std::move(machine)) {}

    void requireSupport(const RamDiskSpecification& specification) const override;
    void prepare(const RamDiskSpecification& specification) override;
    std::filesystem::path format(const DeviceIdentifier& device, const RamDiskSpecification& specification,
                                 const VolumeProtection& protection) override;
    std::vector<std::string> plan(const RamDiskSpecification& specification) const override;

private:
    std::shared_ptr<FakeMachine> machine_;
};

class FakeInventory final : public RamDiskInventory {
public:
    explicit FakeInventory(std::shared_ptr<FakeMachine> machine) : machine_(std::move(machine)) {}

    std::vector<RamDisk> list() override;

private:
    std::shared_ptr<FakeMachine> machine_;
};

class FakeIndexing final : public SearchIndexControlling {
public:
    explicit FakeIndexing(std::shared_ptr<FakeMachine> machine) : machine_(std::move(machine)) {}

    void set(SearchIndexing indexing, const std::filesystem::path& volume) override;
    std::optional<SearchIndexing> state(const std::filesystem::path& volume) override;
    std::vector<std::string> plan(SearchIndexing indexing) const override;

private:
    std::shared_ptr<FakeMachine> machine_;
    std::map<std::filesystem::path, SearchIndexing> states_;
};

class FakePassphrases final : public PassphraseGenerating {
public:
    explicit FakePassphrases(std::shared_ptr<FakeMachine> machine) : machine_(std::move(machine)) {}

    VolumePassphrase generate() override;

private:
    std::shared_ptr<FakeMachine> machine_;
};

class FakeMemory final : public SystemMemoryProviding {
public:
    explicit FakeMemory(std::shared_ptr<FakeMachine> machine) : machine_(std::move(machine)) {}

    SystemMemory read() const override { return machine_->memory; }

private:
    std::shared_ptr<FakeMachine> machine_;
};

class FakeVolumes final : public MountedVolumeListing {
public:
    explicit FakeVolumes(std::shared_ptr<FakeMachine> machine) : machine_(std::move(machine)) {}

    std::set<std::string> volumeNames(const std::optional<std::filesystem::path>& excluding) const override;

private:
    std::shared_ptr<FakeMachine> machine_;
};

class FakeStartupDisks final : public StartupDiskNaming {
public:
    explicit FakeStartupDisks(std::shared_ptr<FakeMachine> machine) : machine_(std::move(machine)) {}

    std::set<std::string> startupDiskNames() const override { return machine_->startupDisks; }

private:
    std::shared_ptr<FakeMachine> machine_;
};

/// The use cases with one machine.
[[nodiscard]] ValidationContextProvider contextProvider(const std::shared_ptr<FakeMachine>& machine);
[[nodiscard]] CreateRamDiskUseCase createUseCase(const std::shared_ptr<FakeMachine>& machine);
[[nodiscard]] ListRamDisksUseCase listUseCase(const std::shared_ptr<FakeMachine>& machine);
[[nodiscard]] EjectRamDiskUseCase ejectUseCase(const std::shared_ptr<FakeMachine>& machine);

} // namespace ramdisk::test
