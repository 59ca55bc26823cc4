#include "RamDiskInfrastructure/MacTools/KeychainSecretStore.h"

#include <gtest/gtest.h>

#include <map>

namespace ramdisk {
namespace {

constexpr std::int32_t duplicate = -25299;
constexpr std::int32_t notFound = -25300;

/// What outlives the store: the items, by service and account, and what was asked.
struct Keychain {
    std::map<std::string, std::pair<VolumePassphrase, std::string>> items;
    /// The status that calls end with, where it is not 0.
    std::int32_t failure = 0;
    std::vector<std::string> calls;
};

class FakeKeychainItems final : public KeychainItems {
public:
    explicit FakeKeychainItems(Keychain& keychain) : keychain_(keychain) {}

    Data copyData(const Item& item) override {
        const auto status = begin("read", item);
        return {status, status == 0 ? std::optional(keychain_.items.at(key(item)).first) : std::nullopt};
    }
    std::int32_t update(const Item& item, const VolumePassphrase& secret) override {
        const auto status = begin("update", item);
        if (status == 0) {
            keychain_.items.at(key(item)).first = secret;
        }
        return status;
    }
    std::int32_t add(const Item& item, const VolumePassphrase& secret, const std::string& label) override {
        if (begin("add", item) == notFound && keychain_.failure != duplicate) {
            keychain_.items.emplace(key(item), std::pair(secret, label));
            return 0;
        }
        return duplicate;
    }
    std::int32_t remove(const Item& item) override {
        const auto status = begin("delete", item);
        keychain_.items.erase(status == 0 ? key(item) : "");
        return status;
    }
    Accounts accounts(const std::string& service) override {
        Accounts accounts{keychain_.items.empty() ? notFound : 0, {}};
        for (const auto& [name, item] : keychain_.items) {
            accounts.names.push_back(name.substr(service.size() + 1));
        }
        accounts.status = keychain_.failure != 0 ? keychain_.failure : accounts.status;
        return accounts;
    }
    std::optional<std::string> message(std::int32_t status) override {
        return status == -25308 ? std::optional<std::string>("User interaction is not allowed.")
                                : std::nullopt;
    }

private:
    static std::string key(const Item& item) { return item.service + "|" + item.account; }
    std::int32_t begin(const char* call, const Item& item) {
        keychain_.calls.emplace_back(call);
        if (keychain_.failure != 0 && keychain_.failure != duplicate) {
            return keychain_.failure;
        }
        return keychain_.items.contains(key(item)) ? 0 : notFound;
    }

    Keychain& keychain_;
};

class KeychainSecretStoreTest : public testing::Test {
protected:
    Keychain keychain;
    KeychainSecretStore store{"com.tavrin.RamDisk", std::make_unique<FakeKeychainItems>(keychain)};
    const VolumePassphrase first{"first"};
    const VolumePassphrase second{"second"};
};

TEST_F(KeychainSecretStoreTest, AddsOnceAndUpdatesInPlace) {
    EXPECT_EQ(store.read("A"), std::nullopt);
    EXPECT_EQ(store.accounts(), std::vector<std::string>{});
    store.store("A", first);
    store.store("A", second);
    EXPECT_EQ(keychain.calls, (std::vector<std::string>{"read", "update", "add", "update"}));
    ASSERT_TRUE(keychain.items.contains("com.tavrin.RamDisk|A"));
    EXPECT_EQ(keychain.items.at("com.tavrin.RamDisk|A").second, "RamDisk saved contents");
    EXPECT_EQ(store.read("A"), second);
    EXPECT_EQ(store.accounts(), std::vector<std::string>{"A"});
    store.remove("A");
    store.remove("A");
    EXPECT_EQ(store.read("A"), std::nullopt);
}

TEST_F(KeychainSecretStoreTest, PassesOnWhatTheKeychainRefuses) {
    const auto expectText = [&](std::int32_t status, const char* text, auto body) {
        keychain.failure = status;
        try {
            body();
            ADD_FAILURE() << status;
        } catch (const KeychainSecretStore::KeychainError& error) {
            EXPECT_EQ(error.status(), status);
            EXPECT_STREQ(error.what(), text);
        }
    };
    const char* const known = "User interaction is not allowed.";
    expectText(-25308, known, [&] { static_cast<void>(store.read("A")); });
    expectText(-25308, known, [&] { store.store("A", first); });
    expectText(-25308, known, [&] { store.remove("A"); });
    expectText(-34018, "Keychain error -34018.", [&] { static_cast<void>(store.accounts()); });
    expectText(-25299, "Keychain error -25299.", [&] { store.store("A", first); });
    EXPECT_TRUE(keychain.items.empty());
}

} // namespace
} // namespace ramdisk
