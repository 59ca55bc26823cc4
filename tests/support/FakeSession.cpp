#include "tests/support/FakeSession.h"

#include <algorithm>
#include <stdexcept>

namespace ramdisk::test {

namespace {

class Profiles final : public ProfileRepository {
public:
    explicit Profiles(FakeSession& session) : session_(session) {}
    List load() const override { return session_.profiles; }
    void update(const std::function<List(List)>& transform) override {
        session_.profiles = transform(session_.profiles);
    }

private:
    FakeSession& session_;
};

class Storage final : public ContentStorageLocating {
public:
    explicit Storage(FakeSession& session) : session_(session) {}
    std::filesystem::path imageLocation(const UUID& profile) const override { return profile.text(); }
    std::filesystem::path unfinishedResizes() const override { return "Unfinished"; }
    std::future<void> withLock(const UUID& profile, std::function<void()> body) const override {
        if (session_.lockedElsewhere.contains(profile)) {
            throw std::logic_error("would wait for ever");
        }
        std::promise<void> done;
        try {
            body();
            done.set_value();
        } catch (...) {
            done.set_exception(std::current_exception());
        }
        return done.get_future();
    }
    bool isLocked(const UUID& profile) const override { return session_.lockedElsewhere.contains(profile); }
    std::future<void> withResizeLock(const UUID&, std::function<void()>) const override {
        throw std::logic_error("no resizes here");
    }
    bool isResizeLocked(const UUID&) const override { return false; }
    std::optional<UUID> boundInstance(const UUID& profile) const override {
        return find(session_.bound, profile);
    }
    void bind(const UUID& profile, const UUID& instance) override {
        session_.bound.insert_or_assign(profile, instance);
    }
    std::optional<UUID> instanceBeingFilled(const UUID& profile) const override {
        return find(session_.beingFilled, profile);
    }
    void setInstanceBeingFilled(const UUID& profile, const std::optional<UUID>& instance) override {
        session_.beingFilled.erase(profile);
        if (instance) {
            session_.beingFilled.emplace(profile, *instance);
        }
    }

private:
    static std::optional<UUID> find(const std::map<UUID, UUID>& map, const UUID& key) {
        const auto found = map.find(key);
        return found == map.end() ? std::nullopt : std::optional(found->second);
    }
    FakeSession& session_;
};

class Secrets final : public SecretStoring {
public:
    explicit Secrets(FakeSession& session) : session_(session) {}
    std::optional<VolumePassphrase> read(const std::string& account) override {
        requireUnlocked();
        const auto found = session_.secrets.find(account);
        return found == session_.secrets.end() ? std::nullopt : std::optional(found->second);
    }
    void store(const std::string& account, const VolumePassphrase& secret) override {
        requireUnlocked();
        session_.secrets.insert_or_assign(account, secret);
    }
    void remove(const std::string& account) override {
        requireUnlocked();
        session_.secrets.erase(account);
    }
    std::vector<std::string> accounts() override { return {}; }

private:
    void requireUnlocked() const {
        if (session_.keyringFailure) {
            throw std::runtime_error(*session_.keyringFailure);
        }
    }
    FakeSession& session_;
};

class Archiver final : public ContentArchiving {
public:
    explicit Archiver(FakeSession& session) : session_(session) {}
    SaveOutcome save(const SaveRequest& request, const ProgressObserver&) override {
        if (session_.saveFailure) {
            throw RamDiskError(*session_.saveFailure);
        }
        auto& copies = session_.copies[profileOf(request.files)];
        const auto& files = session_.files[request.disk.name];
        const bool isSame = !copies.empty() && copies.front() == files;
        if (!isSame) {
            copies.insert(copies.begin(), files);
            copies.resize(std::min<std::size_t>(copies.size(), request.previousCopies + 1));
        }
        if (const auto action = std::exchange(session_.afterSave, {})) {
            action();
        }
        return isSame ? SaveOutcome::nothingChanged : SaveOutcome::saved;
    }
    RestoredVolume restore(const RestoreRequest& request, const ProgressObserver& observer) override {
        if (session_.restoreFailure && !session_.failsHalfWay) {
            throw RamDiskError(*session_.restoreFailure);
        }
        observer({});
        session_.files[request.disk.name] = "half";
        if (session_.restoreFailure) {
            throw RamDiskError(*session_.restoreFailure);
        }
        const auto index = std::stoul(request.image.extension().string().substr(1));
        session_.files[request.disk.name] = session_.copies.at(profileOf(request.files)).at(index);
        return {request.disk};
    }
    void requireSupport(const RamDisk&) const override {}
    void tidy(const SavedCopyFiles&) override {}
    std::vector<SavedCopy> copies(const SavedCopyFiles& files) override {
        std::vector<SavedCopy> list;
        for (std::size_t index = 0; index < session_.copies[profileOf(files)].size(); ++index) {
            list.push_back({files.latest.string() + "." + std::to_string(index), {}, {}, index == 0});
        }
        return list;
    }
    SavedVolume describe(const std::filesystem::path&, const VolumeProtection&) override { return {}; }
    void remove(const SavedCopyFiles& files) override { session_.copies.erase(profileOf(files)); }

private:
    static UUID profileOf(const SavedCopyFiles& files) { return UUID::parse(files.latest.string()).value(); }
    FakeSession& session_;
};

/// Seeds, folders and what else is done to a disk, noted among the machine's steps.
class Furnishing final : public FolderCopying, public FolderMaking, public WriteBlocking {
public:
    explicit Furnishing(FakeSession& session) : session_(session) {}
    void copy(const std::filesystem::path& folder, const std::filesystem::path& volume) override {
        session_.machine->steps.push_back("copy " + folder.string() + " to " + volume.string());
        if (session_.failingFolders.contains(folder.string())) {
            throw RamDiskError(RamDiskError::ContentsTransferFailed{"no such folder"});
        }
    }
    void make(const std::string& relativePath, const std::filesystem::path& volume) override {
        session_.machine->steps.push_back("make " + relativePath + " on " + volume.string());
        if (session_.failingFolders.contains(relativePath)) {
            throw RamDiskError(RamDiskError::FolderNotCreated{relativePath, "in the way"});
        }
    }
    bool block(const RamDisk& disk) override {
        session_.machine->steps.push_back("block " + disk.name);
        return !session_.cannotBlockWrites;
    }
    void allow(const RamDisk& disk) noexcept override {
        session_.machine->steps.push_back("allow " + disk.name);
    }

private:
    FakeSession& session_;
};

class RedirectList final : public RedirectRepository {
public:
    explicit RedirectList(FakeSession& session) : session_(session) {}
    List load() const override { return session_.redirects; }
    void save(const List& list) override { session_.redirects = list; }
    std::future<void> update(std::function<void()> body) override {
        std::packaged_task<void()> task(std::move(body));
        task();
        return task.get_future();
    }

private:
    FakeSession& session_;
};

class Redirecting final : public FolderRedirecting {
public:
    explicit Redirecting(FakeSession& session) : session_(session) {}
    RedirectPlace place(const RedirectTarget& target) const override {
        const auto& path = std::get<RedirectTarget::Folder>(target.value).path;
        return {path, path};
    }
    RedirectRestoreState apply(const FolderRedirect& redirect, const std::filesystem::path&,
                               const Record& record) override {
        const auto path = std::get<RedirectTarget::Folder>(redirect.target.value).path;
        session_.machine->steps.push_back("redirect " + path);
        if (session_.failingRedirects.contains(path)) {
            throw std::runtime_error("read-only home");
        }
        const RedirectRestoreState state{RedirectRestoreState::LinkedFolder{{}, "there"}};
        record(state);
        return state;
    }
    std::optional<std::string> undo(const FolderRedirect& redirect, const RedirectRestoreState&) override {
        session_.machine->steps.push_back("undo "
                                          + std::get<RedirectTarget::Folder>(redirect.target.value).path);
        return std::nullopt;
    }
    bool isInForce(const FolderRedirect&, const std::filesystem::path&) const override { return true; }

private:
    FakeSession& session_;
};

} // namespace

RamDiskProfile& FakeSession::add(const std::string& name) {
    machine->startupDisks.insert(name);
    return profiles.emplace_back(RamDiskProfile{
        .id = UUID::random(), .name = name, .size = ByteCount::of(64, ByteCount::Unit::mebibyte)});
}

std::shared_ptr<ManageProfilesUseCase> FakeSession::manage() {
    return std::make_shared<ManageProfilesUseCase>(
        std::make_shared<Profiles>(*this), std::make_shared<Storage>(*this), std::make_shared<Secrets>(*this),
        std::make_shared<Archiver>(*this));
}

std::shared_ptr<ProfileContentsUseCase> FakeSession::contents() {
    return std::make_shared<ProfileContentsUseCase>(ProfileContentsUseCase::Ports{
        std::make_shared<Archiver>(*this), std::make_shared<Storage>(*this), std::make_shared<Secrets>(*this),
        std::make_shared<FakePassphrases>(machine),
        std::make_shared<ListRamDisksUseCase>(std::make_shared<FakeInventory>(machine))});
}

std::shared_ptr<FolderRedirectsUseCase> FakeSession::redirectsUseCase() {
    return std::make_shared<FolderRedirectsUseCase>(
        std::make_shared<RedirectList>(*this), std::make_shared<Redirecting>(*this),
        std::make_shared<FakeInventory>(machine), std::make_shared<FakeStartupDisks>(machine));
}

RamDiskServices FakeSession::services() {
    const auto furnishing = std::make_shared<Furnishing>(*this);
    RamDiskServices services;
    services.create = std::make_shared<CreateRamDiskUseCase>(createUseCase(machine));
    services.list = std::make_shared<ListRamDisksUseCase>(std::make_shared<FakeInventory>(machine));
    services.eject = std::make_shared<EjectRamDiskUseCase>(ejectUseCase(machine));
    services.indexing = std::make_shared<FakeIndexing>(machine);
    services.folderCopier = furnishing;
    services.folderMaker = furnishing;
    services.writeBlocking = furnishing;
    services.archiver = std::make_shared<Archiver>(*this);
    services.validationContext = contextProvider(machine);
    return services;
}

SessionLifecycleUseCase FakeSession::lifecycle() {
    return {services(), manage(), contents(), redirectsUseCase()};
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
