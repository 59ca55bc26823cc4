#include "RamDiskInfrastructure/Linux/Secrets/KeyFileStore.h"

#include "tests/support/SecretStoreContract.h"

namespace ramdisk::test {
namespace {

TEST(KeyFileStore, KeepsAnyAccountInAFileOfItsOwnForItsOwnerAlone) {
    const ScratchFolder folder;
    const ScratchFolder elsewhere;
    KeyFileStore store(folder.path() / "not there yet");
    KeyFileStore other(elsewhere.path());
    expectKeepsSecrets(store, other);
    const auto keys = folder.path() / "not there yet" / "Saved Contents Keys";
    EXPECT_TRUE(fs::is_empty(keys));
    store.store("A", VolumePassphrase("key"));
    EXPECT_EQ(fs::status(keys / "A.key").permissions(), fs::perms(0600));
    EXPECT_EQ(fs::status(keys).permissions(), fs::perms(0700));
    writeFile(keys / "A.note", "somebody's");
    EXPECT_EQ(store.accounts(), Accounts{"A"});
    store.remove("A");
    EXPECT_EQ(readFile(keys / "A.note"), "somebody's");
}

TEST(KeyFileStore, NeitherUsesNorReplacesWhatOthersMayHaveTouched) {
    const auto relink = [](const fs::path& path, const fs::path& target) {
        fs::rename(path, target);
        fs::create_symlink(target, path);
    };
    const auto file = [](const fs::path& keys) { return keys / "A.key"; };
    const std::vector<std::pair<const char*, std::function<void(const fs::path&)>>> rows{
        {"readable by the group", [&](const auto& keys) { fs::permissions(file(keys), fs::perms(0640)); }},
        {"a folder for everybody", [&](const auto& keys) { fs::permissions(keys, fs::perms(0777)); }},
        {"a link", [&](const auto& keys) { relink(file(keys), keys / "elsewhere"); }},
        {"a folder that is a link", [&](const auto& keys) { relink(keys, keys.parent_path() / "real"); }},
        {"a pipe",
         [&](const auto& keys) {
             EXPECT_TRUE(fs::remove(file(keys)) && mkfifo(file(keys).c_str(), 0600) == 0);
         }},
        {"empty", [&](const auto& keys) { fs::resize_file(file(keys), 0); }},
        {geteuid() == 0 ? "somebody else's" : nullptr,
         [&](const auto& keys) { EXPECT_EQ(chown(file(keys).c_str(), 4711, 4711), 0); }},
    };
    for (const auto& [what, meddle] : rows) {
        const ScratchFolder folder;
        KeyFileStore store(folder.path());
        store.store("A", VolumePassphrase("key"));
        if (what != nullptr) {
            meddle(folder.path() / "Saved Contents Keys");
            EXPECT_THROW(static_cast<void>(store.read("A")), std::exception) << what;
            EXPECT_THROW(store.store("A", VolumePassphrase("new")), std::exception) << what;
        }
    }
}

} // namespace
} // namespace ramdisk::test
