#pragma once

#include "RamDiskCore/Disks/CreateRamDiskUseCase.h"
#include "RamDiskCore/Disks/EjectRamDiskUseCase.h"
#include "RamDiskCore/Disks/ListRamDisksUseCase.h"
#include "RamDiskCore/Ports/FolderCopying.h"
#include "RamDiskCore/Ports/FolderMaking.h"
#include "RamDiskCore/Ports/FolderRedirecting.h"
#include "RamDiskCore/Ports/WriteBlocking.h"
#include "RamDiskCore/Values/RamDiskError.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
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
    void note(const std::string& step);

    /// Attaches a mounted disk of this system, and gives it back as a listing would.
    RamDisk& attach(unsigned number, const std::string& name, std::uint64_t attachment = 1);
    [[nodiscard]] RamDisk* find(const DeviceIdentifier& device);
    [[nodiscard]] std::set<std::string> attachedDevices() const;

    DeviceIdentifier allocate(ByteCount size) override;
    void settle(const DeviceIdentifier& device) override;
    ReleaseOutcome release(const DeviceIdentifier& device, Force force,
                           std::optional<std::uint64_t> attachment) override;
    void requireSupport(const RamDiskSpecification& specification) const override;
    void prepare(const RamDiskSpecification& specification) override;
    std::filesystem::path format(const DeviceIdentifier& device, const RamDiskSpecification& specification,
                                 const VolumeProtection& protection) override;
    std::vector<RamDisk> list() override;
    void set(SearchIndexing indexing, const std::filesystem::path& volume) override;
    std::optional<SearchIndexing> state(const std::filesystem::path& /*volume*/) override { return {}; }
    VolumePassphrase generate() override;
    SystemMemory read() const override { return memory; }
    std::set<std::string> volumeNames(const std::optional<std::filesystem::path>& excluding) const override;
    std::set<std::string> startupDiskNames() const override { return startupDisks; }
    void copy(const std::filesystem::path& folder, const std::filesystem::path& volume) override;
    void make(const std::string& relativePath, const std::filesystem::path& volume) override;
    RedirectPlace place(const RedirectTarget& target) const override;
    RedirectRestoreState apply(const FolderRedirect& redirect, const std::filesystem::path& mountPoint,
                               const Record& record) override;
    std::optional<std::string> undo(const FolderRedirect& redirect,
                                    const RedirectRestoreState& state, Force force) override;
    bool isInForce(const FolderRedirect&, const std::filesystem::path&) const override { return true; }
    Outcome block(const RamDisk& disk) override;
    void allow(const RamDisk& disk) noexcept override;
    std::vector<std::string> plan(ByteCount size) const override;
    std::vector<std::string> plan(const RamDiskSpecification& specification) const override;
    std::vector<std::string> plan(SearchIndexing indexing) const override;
};

/// The use cases over one machine.
[[nodiscard]] ValidationContextProvider contextProvider(const std::shared_ptr<FakeMachine>& machine);
[[nodiscard]] CreateRamDiskUseCase createUseCase(const std::shared_ptr<FakeMachine>& machine);

/// The error that `action` ends in.
/// @throws std::logic_error when it ends well.
[[nodiscard]] RamDiskError failureOf(const std::function<void()>& action);

} // namespace ramdisk::test
