#pragma once

#include "RamDiskCore/Startup/LoadSavedContentsUseCase.h"
#include "RamDiskCore/Startup/SessionLifecycleUseCase.h"
#include "RamDiskInfrastructure/Archive/SavedContentsArchiver.h"
#include "RamDiskInfrastructure/Stores/ApplicationSupportContentStorage.h"
#include "RamDiskInfrastructure/Stores/FileProfileRepository.h"
#include "RamDiskInfrastructure/Stores/FileRedirectRepository.h"
#include "RamDiskInfrastructure/Tasks/TaskPool.h"
#include "tests/support/FakeImageTool.h"
#include "tests/support/FakeMachine.h"
#include "tests/support/ScratchFolder.h"

namespace ramdisk::test {

/// A keyring in memory.
class FakeSecrets final : public SecretStoring {
public:
    std::optional<VolumePassphrase> read(const std::string& account) override;
    void store(const std::string& account, const VolumePassphrase& secret) override;
    void remove(const std::string& account) override;
    std::vector<std::string> accounts() override { return {}; }

    std::map<std::string, VolumePassphrase> secrets;
    bool isLocked = false;
};

/// Startup disks with the real lists, locks and archiver in a folder of the test's own, around a
/// `FakeMachine` whose volumes are folders and a `FakeImageTool`: each disk holds one file.
class FakeSession {
public:
    FakeSession();

    /// Stores a startup disk of 64 MB, kept from launch to launch. @returns its identifier.
    UUID add(RamDiskProfile profile);
    void write(const std::string& disk, const std::string& text) const;
    [[nodiscard]] std::string read(const std::string& disk) const;
    /// Saves copies as an earlier session did, the oldest first.
    void saveEarlier(const UUID& profile, const std::vector<std::string>& texts);
    /// What the copies of a profile hold, the latest first.
    [[nodiscard]] std::vector<std::string> copies(const UUID& profile) const;

    [[nodiscard]] std::shared_ptr<ManageProfilesUseCase> manage();
    [[nodiscard]] std::shared_ptr<ProfileContentsUseCase> contents();
    [[nodiscard]] std::shared_ptr<FolderRedirectsUseCase> redirects();
    [[nodiscard]] RamDiskServices services();
    [[nodiscard]] SessionLifecycleUseCase lifecycle();

private:
    ScratchFolder scratch_;

public:
    std::shared_ptr<TaskPool> tasks = std::make_shared<TaskPool>();
    std::shared_ptr<FakeMachine> machine = std::make_shared<FakeMachine>();
    std::shared_ptr<FakeImageTool> images = std::make_shared<FakeImageTool>();
    std::shared_ptr<FakeSecrets> keyring = std::make_shared<FakeSecrets>();
    std::shared_ptr<FileProfileRepository> profiles;
    std::shared_ptr<FileRedirectRepository> redirectList;
    std::shared_ptr<ApplicationSupportContentStorage> storage;
    std::shared_ptr<SavedContentsArchiver> archiver = std::make_shared<SavedContentsArchiver>(images);
};

/// The name of the error's case, or the text of another error; nothing when there is none.
[[nodiscard]] std::string caseOf(const std::function<void()>& action);

} // namespace ramdisk::test
