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

namespace ramdisk::test {

/// A keyring in memory.
class FakeSecrets final : public SecretStoring {
public:
    std::optional<VolumePassphrase> read(const std::string& account) override {
        if (isLocked) {
            throw std::runtime_error("The keyring is locked.");
        }
        const auto found = secrets.find(account);
        return found == secrets.end() ? std::nullopt : std::optional(found->second);
    }
    void store(const std::string& account, const VolumePassphrase& secret) override {
        secrets.insert_or_assign(account, secret);
    }
    void remove(const std::string& account) override { secrets.erase(account); }
    std::vector<std::string> accounts() override { return {}; }

    std::map<std::string, VolumePassphrase> secrets;
    bool isLocked = false;
};

/// Startup disks with the real lists, locks and archiver in a folder of the test's own, around a
/// `FakeMachine` whose volumes are folders and a `FakeImageTool`: each disk holds one file.
class FakeSession {
public:
    FakeSession()
        : profiles(std::make_shared<FileProfileRepository>(scratch_.path() / "lists")),
          redirectList(std::make_shared<FileRedirectRepository>(scratch_.path() / "lists", tasks)),
          storage(std::make_shared<ApplicationSupportContentStorage>(scratch_.path() / "lists", tasks)) {
        machine->volumes = scratch_.path();
        machine->hasFolders = true;
    }

    /// Stores a startup disk of 64 MB, kept from launch to launch. @returns its identifier.
    UUID add(RamDiskProfile profile) {
        profile.keepsContents = true;
        profile.size = ByteCount::of(64, ByteCount::Unit::mebibyte);
        machine->startupDisks.insert(profile.name);
        manage()->store(profile);
        return profile.id;
    }
    void write(const std::string& disk, const std::string& text) const {
        scratch_.write(disk + "/file", text);
    }
    [[nodiscard]] std::string read(const std::string& disk) const { return scratch_.read(disk + "/file"); }
    /// Saves copies as an earlier session did, the oldest first.
    void saveEarlier(const UUID& profile, const std::vector<std::string>& texts) {
        auto disk = machine->attach(99, "Of an earlier session");
        machine->disks.pop_back();
        std::filesystem::create_directory(*disk.mountPoint);
        for (const auto& text : texts) {
            write(disk.name, text);
            archiver->save({.disk = disk, .files = {storage->imageLocation(profile)}, .previousCopies = 9},
                           {});
        }
    }
    /// What the copies of a profile hold, the latest first.
    [[nodiscard]] std::vector<std::string> copies(const UUID& profile) const {
        std::vector<std::string> texts;
        for (const auto& copy : archiver->copies({storage->imageLocation(profile)})) {
            const auto image = readFile(copy.image);
            texts.push_back(image.substr(1, image.size() - 2));
        }
        return texts;
    }

    [[nodiscard]] std::shared_ptr<ManageProfilesUseCase> manage() {
        return std::make_shared<ManageProfilesUseCase>(profiles, storage, keyring, archiver);
    }
    [[nodiscard]] std::shared_ptr<ProfileContentsUseCase> contents() {
        return std::make_shared<ProfileContentsUseCase>(ProfileContentsUseCase::Ports{
            archiver, storage, keyring, machine, std::make_shared<ListRamDisksUseCase>(machine), profiles});
    }
    [[nodiscard]] std::shared_ptr<FolderRedirectsUseCase> redirects() {
        return std::make_shared<FolderRedirectsUseCase>(redirectList, machine, machine, machine);
    }
    [[nodiscard]] RamDiskServices services() {
        RamDiskServices services;
        services.create = std::make_shared<CreateRamDiskUseCase>(createUseCase(machine));
        services.list = std::make_shared<ListRamDisksUseCase>(machine);
        services.eject = std::make_shared<EjectRamDiskUseCase>(machine, machine);
        services.indexing = machine;
        services.folderCopier = machine;
        services.folderMaker = machine;
        services.writeBlocking = machine;
        services.archiver = archiver;
        services.validationContext = contextProvider(machine);
        return services;
    }
    [[nodiscard]] SessionLifecycleUseCase lifecycle() {
        return {services(), manage(), contents(), redirects()};
    }

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
[[nodiscard]] inline std::string caseOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const RamDiskError& error) {
        return std::string(error.caseName());
    } catch (const std::exception& error) {
        return error.what();
    }
    return "";
}

} // namespace ramdisk::test
