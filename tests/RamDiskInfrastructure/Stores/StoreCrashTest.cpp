#include "RamDiskInfrastructure/Stores/FileRedirectRepository.h"
#include "RamDiskInfrastructure/Stores/LockedJSONFile.h"
#include "RamDiskInfrastructure/Stores/StoredFile.h"
#if defined(__linux__)
#    include "tests/support/Linux/KillLoop.h"
#    include "tests/support/Linux/TestMachine.h"
#    include "tests/support/Linux/TestMount.h"
#endif

namespace ramdisk::test {
namespace {

using RedirectList = std::vector<FolderRedirect>;
using RedirectStore = LockedJSONFile<FolderRedirect>;

#if defined(__OPTIMIZE__) && !defined(__SANITIZE_THREAD__) && !defined(__SANITIZE_ADDRESS__)
constexpr int updatesPerProcess = 500;
#else
// The same races, where each update takes ten times as long.
constexpr int updatesPerProcess = 60;
#endif
constexpr int processCount = 8;

RedirectStore storeIn(const fs::path& folder) {
    return RedirectStore({folder / "List.json", FileLock(folder / "List.lock"),
                          [] { return std::chrono::system_clock::from_time_t(1731600000); }});
}

FolderRedirect entry(const std::string& name) {
    static const auto identifier = UUID::random();
    return {.id = identifier, .diskName = name, .target = {RedirectTarget::NpmCache{}}};
}

std::function<RedirectList(RedirectList)> adding(const std::string& name) {
    return [name](RedirectList list) {
        list.push_back(entry(name));
        return list;
    };
}

TEST(StoreCrash, NothingIsLostAmongManyWritersAndReadersSeeWholeListsOnly) {
    const ScratchFolder scratch;
    const auto store = storeIn(scratch.path());
    for (int process = 0; process < processCount; ++process) {
        if (fork() == 0) {
            for (int number = 0; number < updatesPerProcess; ++number) {
                store.update(adding(std::to_string(process) + "." + std::to_string(number)));
            }
            _exit(0);
        }
    }
    std::size_t longest = 0;
    std::size_t looks = 0;
    for (int left = processCount; left > 0;) {
        const auto text = readStoredFile(scratch.path() / "List.json");
        if (text) {
            const auto list = decodeList<FolderRedirect>(*text);
            EXPECT_TRUE(list) << text->size();
            EXPECT_GE(list ? list->size() : longest, longest);
            longest = list ? list->size() : longest;
            ++looks;
        }
        usleep(2000);
        for (int status = 0; waitpid(-1, &status, WNOHANG) > 0; --left) {
            EXPECT_EQ(status, 0);
        }
    }
    EXPECT_GT(looks, 10U);
    std::set<std::string> names;
    for (const auto& redirect : store.load()) {
        names.insert(redirect.diskName);
    }
    EXPECT_EQ(names.size(), static_cast<std::size_t>(processCount * updatesPerProcess));
    EXPECT_EQ(store.load().size(), names.size());
    EXPECT_EQ(scratch.names(), (std::set<std::string>{"List.json", "List.lock"}));
}

#if defined(__linux__)
TEST(StoreCrash, KilledAtEveryChangeLeavesAWholeListAndNoLock) {
    const auto after = encodeList<FolderRedirect>({entry("new")});
    for (const std::string before : {"", "[]", "damaged"}) {
        SCOPED_TRACE("“" + before + "”");
        std::optional<ScratchFolder> scratch;
        fs::path folder;
        const auto prepare = [&] {
            folder = scratch.emplace().path() / "made";
            if (!before.empty()) {
                fs::create_directory(folder);
                writeFile(folder / "List.json", before);
            }
        };
        const auto check = [&](const std::optional<int>& status) {
            const auto store = storeIn(folder);
            EXPECT_EQ(status.value_or(0), 0);
            EXPECT_FALSE(store.lock().isHeld());
            const auto left = readFile(folder / "List.json");
            EXPECT_THAT(left, AnyOf(status ? after : before, after));
            store.update([](const RedirectList& unchanged) { return unchanged; });
            EXPECT_EQ(readFile(folder / "List.json"), left == after ? after : "[]");
            // Damage may be set aside twice: by the process that was killed then, and by the next.
            int asideCount = 0;
            for (const auto& file : fs::directory_iterator(folder)) {
                const auto name = file.path().filename().string();
                const bool isAside = name.starts_with("List.unreadable-173160000");
                EXPECT_TRUE(isAside ? readFile(file.path()) == "damaged"
                                    : name == "List.json" || name == "List.lock")
                    << name;
                asideCount += isAside ? 1 : 0;
            }
            EXPECT_EQ(asideCount > 0, before == "damaged");
        };
        const auto calls = killAtEveryCall(
            {.prepare = prepare, .work = [&] { storeIn(folder).update(adding("new")); }, .check = check});
        // What would outlive a power cut too: nothing takes a place before it is on the disk.
        EXPECT_EQ(calls,
                  before == "damaged" ? "write flush link replace flush " : "write flush replace flush ");
    }
}

TEST(StoreCrash, AFullDiskLeavesTheOldListAndNothingElse) {
    SKIP_UNLESS_ROOT();
    const TestMachine machine;
    const ScratchFolder scratch;
    const TmpfsMount small(scratch.path(), "size=64k");
    const auto store = storeIn(scratch.path());
    for (const auto& before : {encodeList<FolderRedirect>({entry("old")}), std::string("damaged")}) {
        scratch.write("List.json", before);
        try {
            store.update([](const RedirectList&) { return RedirectList(2000, entry("too much")); });
            ADD_FAILURE() << "there was room";
        } catch (const std::system_error& error) {
            EXPECT_EQ(error.code(), std::errc::no_space_on_device);
        }
        EXPECT_EQ(scratch.read("List.json"), before);
        EXPECT_EQ(scratch.names(), (std::set<std::string>{"List.json", "List.lock"}));
    }
    store.update(adding("new"));
    EXPECT_EQ(scratch.names().size(), 3U) << "what was damaged is set aside";
}
#endif

} // namespace
} // namespace ramdisk::test
