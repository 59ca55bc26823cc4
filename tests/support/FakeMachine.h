#pragma once

#include "RamDiskCore/Disks/CreateRamDiskUseCase.h"
#include "RamDiskCore/Disks/EjectRamDiskUseCase.h"
#include "RamDiskCore/Disks/ListRamDisksUseCase.h"
#include "RamDiskCore/Ports/FolderCopying.h"
#include "RamDiskCore/Ports/FolderMaking.h"
#include "RamDiskCore/Ports/FolderRedirecting.h"
#include "RamDiskCore/Ports/WriteBlocking.h"
#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskCore/Values/ReasonText.h"

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace ramdisk::test {

/// A machine made of values: what is attached and mounted, and what goes wrong. It is every port at once, so
/// that what is done through one of them the others see. A test sets the fields and reads `steps`.
class FakeMachine final : public RamDeviceAllocating,
                          public VolumeFormatting,
                          public RamDiskInventory,
                          public SearchIndexControlling,
                          public PassphraseGenerating,
                          public SystemMemoryProviding,
                          public MountedVolumeListing,
                          public StartupDiskNaming,
                          public FolderCopying,
                          public FolderMaking,
                          public FolderRedirecting,
                          public WriteBlocking {
public:
    SystemMemory memory{.physical = ByteCount::of(16, ByteCount::Unit::gibibyte),
                        .available = ByteCount::of(16, ByteCount::Unit::gibibyte)};
    /// The attached devices; one that is not formatted yet has no name.
    std::vector<RamDisk> disks;
    /// Where volumes are mounted, and whether a folder is made there for each.
    std::filesystem::path volumes = "/Volumes";
    bool hasFolders = false;
    std::set<std::string> startupDisks;

    // What each step throws, where it is set.
    std::optional<RamDiskError> unsupported, preparationFailure, allocationFailure, formattingFailure,
        indexingFailure, listingFailure, settlingFailure, passphraseFailure;
    /// Whether those are thrown as somebody else's errors.
    bool throwsForeignErrors = false;
    std::map<DeviceIdentifier, RamDiskError> releaseFailures;
    /// Folders that can be neither copied, made nor redirected.
    std::set<std::string> failingFolders;
    /// How often a program has a file open for writing when writing is to be blocked.
    int writers = 0;
    /// Finished disks do not show in the list.
    bool hidesNewDisks = false;

    /// What was done, in order, such as "allocate 1024" and "release disk4 by force".
    std::vector<std::string> steps;
    /// Runs at each step: what else happens meanwhile.
    std::function<void(const std::string& step)> meanwhile;
    void note(const std::string& step) {
        steps.push_back(step);
        if (meanwhile) {
            meanwhile(step);
        }
    }

    /// Attaches a mounted disk of this system, and gives it back as a listing would.
    RamDisk& attach(unsigned number, const std::string& name, std::uint64_t attachment = 1) {
        return disks.emplace_back(RamDisk{.device = DeviceIdentifier::wholeDisk(number),
                                          .name = name,
                                          .capacity = ByteCount::of(1, ByteCount::Unit::gibibyte),
                                          .mountPoint = volumes / name,
                                          .isCreatedByRamDisk = true,
                                          .attachment = attachment});
    }
    [[nodiscard]] RamDisk* find(const DeviceIdentifier& device) {
        const auto found = std::find_if(disks.begin(), disks.end(),
                                        [&](const RamDisk& disk) { return disk.device == device; });
        return found == disks.end() ? nullptr : &*found;
    }
    [[nodiscard]] std::set<std::string> attachedDevices() const {
        std::set<std::string> names;
        for (const auto& disk : disks) {
            names.insert(disk.device.bsdName());
        }
        return names;
    }

    DeviceIdentifier allocate(ByteCount size) override {
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
    void settle(const DeviceIdentifier& device) override {
        note("settle " + device.bsdName());
        throwIfSet(settlingFailure);
    }
    ReleaseOutcome release(const DeviceIdentifier& device, Force force,
                           std::optional<std::uint64_t> attachment) override {
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
    void requireSupport(const RamDiskSpecification& /*specification*/) const override {
        throwIfSet(unsupported);
    }
    void prepare(const RamDiskSpecification& /*specification*/) override { throwIfSet(preparationFailure); }
    std::filesystem::path format(const DeviceIdentifier& device, const RamDiskSpecification& specification,
                                 const VolumeProtection& protection) override {
        note("format " + device.bsdName() + " as " + specification.name);
        if (specification.hasRestoreRoom) {
            note("room for a restore");
        }
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
    std::vector<RamDisk> list() override {
        throwIfSet(listingFailure);
        return hidesNewDisks ? std::vector<RamDisk>{} : disks;
    }
    void set(SearchIndexing indexing, const std::filesystem::path& volume) override {
        note((indexing == SearchIndexing::off ? "index off " : "index on ") + volume.string());
        throwIfSet(indexingFailure);
    }
    std::optional<SearchIndexing> state(const std::filesystem::path& /*volume*/) override { return {}; }
    VolumePassphrase generate() override {
        note("generate");
        throwIfSet(passphraseFailure);
        return VolumePassphrase("open sesame");
    }
    SystemMemory read() const override { return memory; }
    std::set<std::string> volumeNames(const std::optional<std::filesystem::path>& excluding) const override {
        std::set<std::string> names;
        for (const auto& disk : disks) {
            if (disk.mountPoint && disk.mountPoint != excluding) {
                names.insert(disk.name);
            }
        }
        return names;
    }
    std::set<std::string> startupDiskNames() const override { return startupDisks; }
    void copy(const std::filesystem::path& folder, const std::filesystem::path& volume) override {
        note("copy " + folder.string() + " to " + volume.filename().string());
        if (failingFolders.contains(folder.string())) {
            throw RamDiskError(RamDiskError::ContentsTransferFailed{"no such folder"});
        }
    }
    void make(const std::string& relativePath, const std::filesystem::path& volume) override {
        note("make " + relativePath + " on " + volume.filename().string());
        if (failingFolders.contains(relativePath)) {
            throw RamDiskError(RamDiskError::FolderNotCreated{relativePath, "in the way"});
        }
    }
    RedirectPlace place(const RedirectTarget& target) const override {
        const auto& path = std::get<RedirectTarget::Folder>(target.value).path;
        return {path, path};
    }
    RedirectRestoreState apply(const FolderRedirect& redirect, const std::filesystem::path& /*mountPoint*/,
                               const Record& record) override {
        const auto folder = place(redirect.target).nameOnDisk;
        note("redirect " + folder);
        if (failingFolders.contains(folder)) {
            throw std::runtime_error("read-only home");
        }
        const RedirectRestoreState state{RedirectRestoreState::LinkedFolder{{}, "there"}};
        record(state);
        return state;
    }
    std::optional<std::string> undo(const FolderRedirect& redirect, const RedirectRestoreState& /*state*/,
                                    Force /*force*/) override {
        note("undo " + place(redirect.target).nameOnDisk);
        return std::nullopt;
    }
    bool isInForce(const FolderRedirect&, const std::filesystem::path&) const override { return true; }
    Outcome block(const RamDisk& disk) override {
        if (writers > 0) {
            --writers;
            return Outcome::busy;
        }
        note("block " + disk.name);
        return Outcome::blocked;
    }
    void allow(const RamDisk& disk) noexcept override { note("allow " + disk.name); }
    std::vector<std::string> plan(ByteCount size) const override {
        return {"would allocate " + std::to_string(size.bytes)};
    }
    std::vector<std::string> plan(const RamDiskSpecification& specification) const override {
        return {"would format as " + specification.name};
    }
    std::vector<std::string> plan(SearchIndexing /*indexing*/) const override {
        return {"would switch indexing"};
    }

private:
    void throwIfSet(const std::optional<RamDiskError>& failure) const {
        if (failure && throwsForeignErrors) {
            throw std::runtime_error(reasonText(*failure));
        }
        if (failure) {
            throw RamDiskError(*failure);
        }
    }
};

/// The use cases over one machine.
[[nodiscard]] inline ValidationContextProvider contextProvider(const std::shared_ptr<FakeMachine>& machine) {
    return {machine, machine, machine};
}

[[nodiscard]] inline CreateRamDiskUseCase createUseCase(const std::shared_ptr<FakeMachine>& machine) {
    return CreateRamDiskUseCase({machine, machine, machine, machine, machine, contextProvider(machine),
                                 RamDiskSpecificationValidator()});
}

/// The error that `action` ends in.
/// @throws std::logic_error when it ends well.
[[nodiscard]] inline RamDiskError failureOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const RamDiskError& error) {
        return error;
    }
    throw std::logic_error("nothing failed");
}

} // namespace ramdisk::test
