#include "RamDiskInfrastructure/Linux/Secrets/LinuxSecretStore.h"

#include "RamDiskInfrastructure/Linux/Secrets/SecretServiceStore.h"
#include "tests/support/FakeUserDefaults.h"
#include "tests/support/ScratchFolder.h"

#include <gtest/gtest.h>

#include <map>

#include <sys/stat.h>

namespace ramdisk {
namespace {

using test::FakeUserDefaults;
using test::ScratchFolder;
using Accounts = std::vector<std::string>;

/// A keyring that a test locks or takes away.
struct FakeKeyring {
    enum class State { answers, locked, absent };
    State state = State::answers;
    std::map<std::string, VolumePassphrase> kept;
};

class FakeSecretService final : public SecretStoring {
public:
    explicit FakeSecretService(FakeKeyring& keyring) : keyring_(keyring) {}

    std::optional<VolumePassphrase> read(const std::string& account) override {
        require();
        const auto found = keyring_.kept.find(account);
        return found == keyring_.kept.end() ? std::nullopt : std::optional(found->second);
    }
    void store(const std::string& account, const VolumePassphrase& secret) override {
        require();
        keyring_.kept.insert_or_assign(account, secret);
    }
    void remove(const std::string& account) override {
        require();
        keyring_.kept.erase(account);
    }
    std::vector<std::string> accounts() override {
        require();
        Accounts accounts;
        for (const auto& [account, secret] : keyring_.kept) {
            accounts.push_back(account);
        }
        return accounts;
    }

private:
    void require() const {
        if (keyring_.state == FakeKeyring::State::absent) {
            throw SecretServiceAbsent("absent");
        }
        if (keyring_.state == FakeKeyring::State::locked) {
            throw SecretServiceUnavailable("locked");
        }
    }

    FakeKeyring& keyring_;
};

class LinuxSecretStoreTest : public testing::Test {
protected:
    void allow(bool isAllowed) {
        settings->stored.insert_or_assign("allowsKeyFile", DefaultsValue{isAllowed});
    }

    ScratchFolder folder;
    FakeKeyring keyring;
    std::shared_ptr<FakeUserDefaults> settings = std::make_shared<FakeUserDefaults>();
    LinuxSecretStore store{std::make_unique<FakeSecretService>(keyring), folder.path(), settings};
    KeyFileStore files{folder.path()};
    const VolumePassphrase first{"first"};
    const VolumePassphrase second{"second"};
};

TEST_F(LinuxSecretStoreTest, UsesAFileOnlyWhereNoServiceAnswersAndTheUserAllowsIt) {
    keyring.state = FakeKeyring::State::absent;
    for (const bool isRead : {false, true}) {
        try {
            isRead ? static_cast<void>(store.read("A")) : store.store("A", first);
            ADD_FAILURE();
        } catch (const std::exception& error) {
            EXPECT_STREQ(error.what(),
                         "No keyring runs here to keep the key in. To keep it in a file that only "
                         "you can read, run `tramdisk settings set allowsKeyFile true`.");
        }
    }
    EXPECT_EQ(folder.names(), std::set<std::string>{});
    allow(true);
    EXPECT_EQ(store.read("A"), std::nullopt);
    store.store("A", first);
    EXPECT_EQ(store.read("A"), first);
    EXPECT_EQ(store.accounts(), Accounts{"A"});
    allow(false);
    EXPECT_EQ(store.read("A"), first);
    EXPECT_THROW(store.store("A", second), std::exception);

    allow(true);
    keyring.state = FakeKeyring::State::locked;
    EXPECT_THROW(static_cast<void>(store.read("A")), SecretServiceUnavailable);
    EXPECT_THROW(store.store("A", second), SecretServiceUnavailable);
    EXPECT_THROW(store.remove("A"), SecretServiceUnavailable);
    EXPECT_THROW(static_cast<void>(store.accounts()), SecretServiceUnavailable);
    EXPECT_EQ(files.read("A"), first);
}

TEST_F(LinuxSecretStoreTest, MovesToTheKeyringAndKnowsWithoutItWhatItHolds) {
    allow(true);
    keyring.state = FakeKeyring::State::absent;
    store.store("A", first);
    store.store("B", first);
    keyring.state = FakeKeyring::State::answers;
    EXPECT_EQ(store.read("A"), first);
    store.store("A", second);
    EXPECT_EQ(files.read("A"), std::nullopt);
    EXPECT_EQ(store.read("A"), second);
    EXPECT_EQ(store.accounts(), (Accounts{"A", "B"}));

    keyring.state = FakeKeyring::State::absent;
    EXPECT_THROW(static_cast<void>(store.read("A")), SecretServiceUnavailable);
    EXPECT_THROW(store.store("A", first), SecretServiceUnavailable);
    EXPECT_THROW(store.remove("A"), SecretServiceUnavailable);
    EXPECT_THROW(static_cast<void>(store.accounts()), SecretServiceUnavailable);
    EXPECT_EQ(store.read("B"), first);

    keyring.state = FakeKeyring::State::answers;
    EXPECT_EQ(store.read("A"), second);
    store.remove("A");
    keyring.state = FakeKeyring::State::absent;
    EXPECT_EQ(store.read("A"), std::nullopt);
    EXPECT_EQ(store.accounts(), Accounts{"B"});
}

TEST(KeyFileStore, KeepsAnyAccountInAFileOfItsOwnForItsOwnerAlone) {
    const ScratchFolder folder;
    KeyFileStore store(folder.path() / "not there yet");
    const Accounts odd{"", "../up", "A", "B%2", "a b\n", "\xC3\xB6"};
    for (const auto& account : odd) {
        store.store(account, VolumePassphrase("key of " + account));
    }
    EXPECT_EQ(store.accounts().size(), odd.size());
    for (const auto& account : odd) {
        EXPECT_EQ(store.read(account), VolumePassphrase("key of " + account));
    }
    const auto keys = folder.path() / "not there yet" / "Saved Contents Keys";
    for (const auto& entry : std::filesystem::directory_iterator(keys)) {
        EXPECT_EQ(entry.status().permissions(), std::filesystem::perms(0600)) << entry.path();
    }
    EXPECT_EQ(std::filesystem::status(keys).permissions(), std::filesystem::perms(0700));
    for (const auto& account : odd) {
        store.remove(account);
    }
    EXPECT_TRUE(std::filesystem::is_empty(keys));
}

TEST(KeyFileStore, NeitherUsesNorReplacesWhatOthersMayHaveTouched) {
    const ScratchFolder folder;
    KeyFileStore store(folder.path());
    const auto keys = folder.path() / "Saved Contents Keys";
    const auto file = keys / "A.key";
    const VolumePassphrase key("key");
    const auto expectRefusal = [&](const char* what) {
        EXPECT_THROW(static_cast<void>(store.read("A")), std::exception) << what;
        EXPECT_THROW(store.store("A", VolumePassphrase("new")), std::exception) << what;
    };
    store.store("A", key);
    chmod(file.c_str(), 0640);
    expectRefusal("readable by the group");
    chmod(file.c_str(), 0600);
    chmod(keys.c_str(), 0777);
    expectRefusal("a folder for everybody");
    chmod(keys.c_str(), 0700);
    EXPECT_EQ(store.read("A"), key);
    if (geteuid() == 0 && chown(file.c_str(), 4711, 4711) == 0) {
        expectRefusal("somebody else's");
        ASSERT_EQ(chown(file.c_str(), 0, 0), 0);
    }
    std::filesystem::rename(file, folder.path() / "elsewhere");
    std::filesystem::create_symlink(folder.path() / "elsewhere", file);
    expectRefusal("a link");
    std::filesystem::remove(file);
    mkfifo(file.c_str(), 0600);
    expectRefusal("a pipe");
    std::filesystem::remove(file);
    folder.write("Saved Contents Keys/A.key", "");
    chmod(file.c_str(), 0600);
    expectRefusal("empty");
    std::filesystem::rename(keys, folder.path() / "real");
    std::filesystem::create_directory_symlink(folder.path() / "real", keys);
    expectRefusal("a folder that is a link");
}

} // namespace
} // namespace ramdisk
