#pragma once

#include "RamDiskCore/Ports/SecretStoring.h"
#include "tests/support/Testing.h"

namespace ramdisk::test {

using Accounts = std::vector<std::string>;

inline Accounts sortedAccounts(SecretStoring& store) {
    auto accounts = store.accounts();
    std::sort(accounts.begin(), accounts.end());
    return accounts;
}

/// What every store of secrets promises, tried on one that is empty. `other` keeps the secrets of somebody
/// else in the same place.
inline void expectKeepsSecrets(SecretStoring& store, SecretStoring& other) {
    const Accounts odd{"", "../up", "A", "B%2", "a b\n", "\xC3\xB6/"};
    const auto keyOf = [](const std::string& account) {
        return VolumePassphrase("key of " + account + "\n\xE2\x80\x9Cquoted\xE2\x80\x9D");
    };
    other.store("A", VolumePassphrase("theirs"));
    EXPECT_EQ(store.read("A"), std::nullopt);
    EXPECT_EQ(store.accounts(), Accounts{});
    store.remove("A");
    for (const auto& account : odd) {
        store.store(account, VolumePassphrase("former"));
        store.store(account, keyOf(account));
    }
    EXPECT_EQ(sortedAccounts(store), odd);
    for (const auto& account : odd) {
        EXPECT_EQ(store.read(account), keyOf(account)) << account;
        store.remove(account);
        store.remove(account);
        EXPECT_EQ(store.read(account), std::nullopt) << account;
    }
    EXPECT_EQ(store.accounts(), Accounts{});
    EXPECT_EQ(other.read("A"), VolumePassphrase("theirs"));
}

/// What reading, storing, removing and listing say when each has to fail with an `Error`.
template <typename Error>
std::vector<std::string> refusals(SecretStoring& store, const std::string& account = "A") {
    const std::vector<std::function<void()>> operations{
        [&] { static_cast<void>(store.read(account)); },
        [&] { store.store(account, VolumePassphrase("never kept")); },
        [&] { store.remove(account); },
        [&] { static_cast<void>(store.accounts()); },
    };
    std::vector<std::string> texts;
    for (const auto& operation : operations) {
        try {
            operation();
            texts.emplace_back("nothing was refused");
        } catch (const Error& error) {
            texts.emplace_back(error.what());
        }
    }
    return texts;
}

} // namespace ramdisk::test
