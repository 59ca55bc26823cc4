#include "tests/support/FakeSession.h"

#include <stdexcept>

namespace ramdisk::test {

std::optional<VolumePassphrase> FakeSecrets::read(const std::string& account) {
    if (isLocked) {
        throw std::runtime_error("The keyring is locked.");
    }
    const auto found = secrets.find(account);
    return found == secrets.end() ? std::nullopt : std::optional(found->second);
}

void FakeSecrets::store(const std::string& account, const VolumePassphrase& secret) {
    secrets.insert_or_assign(account, secret);
}

void FakeSecrets::remove(const std::string& account) {
    secrets.erase(account);
}

FakeSession::FakeSession()
    : profiles(std::make_shared<FileProfileRepository>(scratch_.path() / "lists")),
      redirectList(std::make_shared<FileRedirectRepository>(scratch_.path() / "lists", tasks)),
      storage(std::make_shared<ApplicationSupportContentStorage>(scratch_.path() / "lists", tasks)) {
    machine->volumes = scratch_.path();
    machine->hasFolders = true;
}

UUID FakeSession::add(RamDiskProfile profile) {
    profile.keepsContents = true;
    profile.size = ByteCount::of(64, ByteCount::Unit::mebibyte);
    machine->startupDisks.insert(profile.name);
    manage()->store(profile);
    return profile.id;
}

void FakeSession::write(const std::string& disk, const std::string& text) const {
    scratch_.write(disk + "/file", text);
}

std::string FakeSession::read(const std::string& disk) const {
    return scratch_.read(disk + "/file");
}

void FakeSession::saveEarlier(const UUID& profile, const std::vector<std::string>& texts) {
    auto disk = machine->attach(99, "Of an earlier session");
    machine->disks.pop_back();
    std::filesystem::create_directory(*disk.mountPoint);
    for (const auto& text : texts) {
        write(disk.name, text);
        archiver->save({.disk = disk, .files = {storage->imageLocation(profile)}, .previousCopies = 9}, {});
    }
}

std::vector<std::string> FakeSession::copies(const UUID& profile) const {
    std::vector<std::string> texts;
    for (const auto& copy : archiver->copies({storage->imageLocation(profile)})) {
        const auto image = readFile(copy.image);
        texts.push_back(image.substr(1, image.size() - 2));
    }
    return texts;
}

std::shared_ptr<ManageProfilesUseCase> FakeSession::manage() {
    return std::make_shared<ManageProfilesUseCase>(profiles, storage, keyring, archiver);
}

std::shared_ptr<ProfileContentsUseCase> FakeSession::contents() {
    return std::make_shared<ProfileContentsUseCase>(ProfileContentsUseCase::Ports{
        archiver, storage, keyring, machine, std::make_shared<ListRamDisksUseCase>(machine), profiles});
}

std::shared_ptr<FolderRedirectsUseCase> FakeSession::redirects() {
    return std::make_shared<FolderRedirectsUseCase>(redirectList, machine, machine, machine);
}

RamDiskServices FakeSession::services() {
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

SessionLifecycleUseCase FakeSession::lifecycle() {
    return {services(), manage(), contents(), redirects()};
}

std::string caseOf(const std::function<void()>& action) {
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
