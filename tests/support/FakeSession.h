#pragma once

#include "RamDiskCore/Startup/LoadSavedContentsUseCase.h"
#include "RamDiskCore/Startup/SessionLifecycleUseCase.h"
#include "tests/support/FakeMachine.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace ramdisk::test {

/// Startup disks, saved copies and keys made of values, around a `FakeMachine`. A disk's files are one text.
/// A test sets the fields, calls the use cases and looks at the fields again.
struct FakeSession {
    std::shared_ptr<FakeMachine> machine = std::make_shared<FakeMachine>();
    std::vector<RamDiskProfile> profiles;
    std::vector<FolderRedirect> redirects;
    /// What is on each disk, by name.
    std::map<std::string, std::string> files;
    /// The copies of each profile, the latest first.
    std::map<UUID, std::vector<std::string>> copies;
    std::map<std::string, VolumePassphrase> secrets;
    std::map<UUID, UUID> bound;
    std::map<UUID, UUID> beingFilled;
    /// Profiles whose lock another process holds.
    std::set<UUID> lockedElsewhere;

    // What goes wrong, where it is set.
    std::optional<RamDiskError> saveFailure;
    std::optional<RamDiskError> restoreFailure;
    /// The restore fails after the disk was changed.
    bool failsHalfWay = false;
    std::optional<std::string> keyringFailure;
    bool cannotBlockWrites = false;
    std::set<std::string> failingFolders;
    std::set<std::string> failingRedirects;
    /// Called once, after the next save, as a program that writes meanwhile.
    std::function<void()> afterSave;

    RamDiskProfile& add(const std::string& name);

    [[nodiscard]] std::shared_ptr<ManageProfilesUseCase> manage();
    [[nodiscard]] std::shared_ptr<ProfileContentsUseCase> contents();
    [[nodiscard]] std::shared_ptr<FolderRedirectsUseCase> redirectsUseCase();
    [[nodiscard]] RamDiskServices services();
    [[nodiscard]] SessionLifecycleUseCase lifecycle();
};

/// The name of the error's case, so that a failed comparison is easy to read.
[[nodiscard]] std::string caseOf(const std::function<void()>& action);

} // namespace ramdisk::test
