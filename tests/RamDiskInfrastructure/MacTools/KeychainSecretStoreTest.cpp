#include "RamDiskInfrastructure/MacTools/KeychainSecretStore.h"

#include "tests/support/SecretStoreContract.h"

namespace ramdisk::test {
namespace {

constexpr const char* service = "com.tavrin.RamDisk";

/// A keychain in memory, where the calls that a test names fail with a status of its choice.
struct Keychain {
    std::map<std::pair<std::string, std::string>, VolumePassphrase> items; ///< By service and account.
    std::map<std::string, std::int32_t> failures;
    std::vector<std::string> calls;
};

class FakeKeychainItems final : public KeychainItems {
public:
    explicit FakeKeychainItems(Keychain& keychain) : keychain_(keychain) {}

    Data copyData(const Item& item) override {
        const auto status = begin("read", item);
        return {status, status == 0 ? std::optional(keychain_.items.at(key(item))) : std::nullopt};
    }
    std::int32_t update(const Item& item, const VolumePassphrase& secret) override {
        return set(begin("update", item), item, secret);
    }
    std::int32_t add(const Item& item, const VolumePassphrase& secret, const std::string& label) override {
        return set(begin("add " + label, item), item, secret);
    }
    std::int32_t remove(const Item& item) override { return set(begin("delete", item), item, std::nullopt); }
    Accounts accounts(const std::string& wanted) override {
        Accounts accounts;
        for (const auto& [name, secret] : keychain_.items) {
            if (name.first == wanted) {
                accounts.names.push_back(name.second);
            }
        }
        accounts.status = begin("list", {wanted, accounts.names.empty() ? "" : accounts.names.front()});
        return accounts;
    }
    std::optional<std::string> message(std::int32_t status) override {
        return status == -25308 ? std::optional<std::string>("User interaction is not allowed.")
                                : std::nullopt;
    }

private:
    static std::pair<std::string, std::string> key(const Item& item) { return {item.service, item.account}; }
    std::int32_t begin(const std::string& call, const Item& item) {
        keychain_.calls.push_back(call);
        const auto failure = keychain_.failures.find(call.substr(0, call.find(' ')));
        return failure != keychain_.failures.end()                              ? failure->second
               : call.starts_with("add") || keychain_.items.contains(key(item)) ? 0
                                                                                : -25300;
    }
    std::int32_t set(std::int32_t status, const Item& item, const std::optional<VolumePassphrase>& secret) {
        if (status == 0) {
            keychain_.items.erase(key(item));
        }
        if (status == 0 && secret) {
            keychain_.items.emplace(key(item), *secret);
        }
        return status;
    }

    Keychain& keychain_;
};

class KeychainSecretStoreTest : public testing::Test {
protected:
    Keychain keychain;
    KeychainSecretStore store{service, std::make_unique<FakeKeychainItems>(keychain)};
};

TEST_F(KeychainSecretStoreTest, KeepsSecretsAndUpdatesThemInPlace) {
    KeychainSecretStore other("com.example.Other", std::make_unique<FakeKeychainItems>(keychain));
    expectKeepsSecrets(store, other);
    keychain.calls.clear();
    store.store("A", VolumePassphrase("first"));
    store.store("A", VolumePassphrase("second"));
    EXPECT_THAT(keychain.calls, ElementsAre("update", "add RamDisk saved contents", "update"));
}

TEST_F(KeychainSecretStoreTest, PassesOnWhatTheKeychainRefuses) {
    using Error = KeychainSecretStore::KeychainError;
    for (const auto& [status, text] :
         {std::pair(-25308, "User interaction is not allowed."), {-34018, "Keychain error -34018."}}) {
        keychain.failures = {{"read", status}, {"update", status}, {"delete", status}, {"list", status}};
        EXPECT_THAT(refusals<Error>(store), Each(text));
    }
    keychain.failures = {{"add", -25299}};
    try {
        store.store("A", VolumePassphrase("first"));
        ADD_FAILURE();
    } catch (const Error& error) {
        EXPECT_EQ(error.status(), -25299);
    }
    EXPECT_TRUE(keychain.items.empty());
}

} // namespace
} // namespace ramdisk::test
