#include "RamDiskInfrastructure/Stores/FileRedirectRepository.h"
#include "RamDiskInfrastructure/Stores/LockedJSONFile.h"
#include "RamDiskInfrastructure/Stores/StoredFile.h"
#include "tests/support/ScratchFolder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>

#include <signal.h>
#include <sys/wait.h>

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
constexpr int killCount = 200;
constexpr std::size_t keptEntries = 20;

RedirectStore storeIn(const std::filesystem::path& folder) {
    return RedirectStore({folder / "List.json", FileLock(folder / "List.lock")});
}

FolderRedirect entry(const std::string& name) {
    static const auto identifier = UUID::random();
    return {.id = identifier, .diskName = name, .target = {RedirectTarget::NpmCache{}}};
}

/// A child process that is gone when this value is.
class Child {
public:
    template <typename Body>
    explicit Child(Body body) : pid_(fork()) {
        if (pid_ == 0) {
            int status = 0;
            try {
                body();
            } catch (const std::exception&) {
                status = 1;
            }
            _exit(status);
        }
    }
    Child(Child&& other) noexcept : pid_(std::exchange(other.pid_, -1)) {}
    Child& operator=(Child&&) = delete;
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    ~Child() { kill(); }

    void kill() {
        if (pid_ > 0) {
            ::kill(pid_, SIGKILL);
            waitpid(std::exchange(pid_, -1), nullptr, 0);
        }
    }
    /// Whether the child ended by itself, and well; absent while it runs.
    std::optional<bool> ended() {
        int status = 0;
        if (pid_ > 0 && waitpid(pid_, &status, WNOHANG) != pid_) {
            return std::nullopt;
        }
        pid_ = -1;
        return WIFEXITED(status) && WEXITSTATUS(status) == 0;
    }

private:
    pid_t pid_;
};

TEST(StoreCrash, NothingIsLostAmongManyWritersAndReadersSeeWholeListsOnly) {
    const ScratchFolder scratch;
    const auto store = storeIn(scratch.path());
    std::vector<Child> children;
    for (int process = 0; process < processCount; ++process) {
        children.emplace_back([&store, process] {
            for (int number = 0; number < updatesPerProcess; ++number) {
                store.update([&](RedirectList list) {
                    list.push_back(entry(std::to_string(process) + "." + std::to_string(number)));
                    return list;
                });
            }
        });
    }
    std::size_t longest = 0;
    std::size_t looks = 0;
    while (!children.empty()) {
        const auto text = readStoredFile(scratch.path() / "List.json");
        if (text) {
            const auto list = decodeList<FolderRedirect>(*text);
            ASSERT_TRUE(list) << text->size();
            ASSERT_GE(list->size(), longest);
            longest = list->size();
            ++looks;
        }
        usleep(2000);
        if (const auto ended = children.back().ended()) {
            ASSERT_TRUE(*ended);
            children.pop_back();
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

TEST(StoreCrash, KilledAtAnyPointLeavesAWholeListAndNoLock) {
    const ScratchFolder scratch;
    const auto store = storeIn(scratch.path());
    const auto count = [](RedirectList list) {
        const int last = list.empty() ? 0 : std::stoi(list.back().diskName);
        list.push_back(entry(std::to_string(last + 1)));
        list.erase(list.begin(), list.size() > keptEntries ? list.begin() + 1 : list.begin());
        return list;
    };
    std::mt19937 random(20011101); // NOLINT: the kernel's timing is what makes the points random
    constexpr unsigned shortestRange = 4000;
    // In microseconds; follows how long this machine takes to fork and to write.
    unsigned range = shortestRange;
    int last = 0;
    for (int round = 0; round < killCount; ++round) {
        Child child([&, parent = getpid()] {
            while (getppid() == parent) {
                store.update(count);
            }
        });
        usleep(std::uniform_int_distribution<unsigned>(0, range)(random));
        child.kill();
        EXPECT_FALSE(store.lock().isHeld());
        const auto text = readStoredFile(scratch.path() / "List.json");
        const auto list = text ? decodeList<FolderRedirect>(*text) : RedirectList{};
        ASSERT_TRUE(list) << *text;
        const int now = list->empty() ? 0 : std::stoi(list->back().diskName);
        ASSERT_GE(now, last);
        ASSERT_EQ(list->size(), std::min<std::size_t>(static_cast<std::size_t>(now), keptEntries));
        EXPECT_LE(scratch.names().size(), 3U);
        range = now == last ? std::min(range * 2, 1000000U) : std::max(range / 2, shortestRange);
        last = now;
    }
    EXPECT_GT(last, killCount / 10);
    store.update(count);
    EXPECT_EQ(scratch.names(), (std::set<std::string>{"List.json", "List.lock"}));
}

} // namespace
} // namespace ramdisk::test
