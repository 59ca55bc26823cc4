#include "RamDiskInfrastructure/Stores/FileRedirectRepository.h"
#include "RamDiskInfrastructure/Stores/LockedJSONFile.h"
#include "RamDiskInfrastructure/Stores/StoredFile.h"
#include "tests/support/ScratchFolder.h"

#include <gmock/gmock.h>

#include <deque>
#include <functional>

#include <signal.h>
#include <sys/wait.h>
#if defined(__linux__)
#    include <sys/ptrace.h>
#    include <sys/syscall.h>
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

RedirectStore storeIn(const std::filesystem::path& folder) {
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

/// A child process that is gone when this value is.
class Child {
public:
    explicit Child(const std::function<void()>& body) : pid(fork()) {
        if (pid == 0) {
            try {
                body();
                _exit(0);
            } catch (const std::exception&) {
                _exit(1);
            }
        }
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    ~Child() {
        if (status_ == -1) {
            kill(pid, SIGKILL);
            waitpid(pid, nullptr, 0);
        }
    }

    /// How the child ended or was stopped, as waitpid tells; absent while it runs.
    std::optional<int> status(int options) {
        int status = 0;
        if (waitpid(pid, &status, options) != pid) {
            return std::nullopt;
        }
        status_ = WIFSTOPPED(status) ? -1 : status;
        return status;
    }

    const pid_t pid;

private:
    int status_ = -1;
};

TEST(StoreCrash, NothingIsLostAmongManyWritersAndReadersSeeWholeListsOnly) {
    const ScratchFolder scratch;
    const auto store = storeIn(scratch.path());
    std::deque<Child> children;
    for (int process = 0; process < processCount; ++process) {
        children.emplace_back([&store, process] {
            for (int number = 0; number < updatesPerProcess; ++number) {
                store.update(adding(std::to_string(process) + "." + std::to_string(number)));
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
        if (const auto status = children.back().status(WNOHANG)) {
            ASSERT_EQ(*status, 0);
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

#if defined(__linux__)
/// Adds an entry in a child process that is killed before its system call of this number, or after it; every
/// other number is a call's return. @returns the calls that change a file or lock it, up to then.
std::string addKilledAt(int number, const RedirectStore& store, bool& wasKilled) {
    Child child([&] {
        ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        raise(SIGSTOP);
        store.update(adding("new"));
    });
    EXPECT_TRUE(WIFSTOPPED(child.status(0).value()));
    EXPECT_EQ(ptrace(PTRACE_SETOPTIONS, child.pid, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL), 0);
    std::map<std::uint64_t, std::string> names{
        {SYS_flock, "lock "}, {SYS_write, "write "}, {SYS_fsync, "flush "}};
    names.insert({{SYS_linkat, "second name "}, {SYS_renameat, "replace "}, {SYS_renameat2, "replace "}});
#    if defined(SYS_rename)
    names.insert({{SYS_link, "second name "}, {SYS_rename, "replace "}});
#    endif
    std::string calls;
    for (; number >= 0; --number) {
        ptrace(PTRACE_SYSCALL, child.pid, nullptr, nullptr);
        if (const int status = child.status(0).value(); !WIFSTOPPED(status)) {
            EXPECT_EQ(status, 0);
            wasKilled = false;
            return calls;
        }
        __ptrace_syscall_info call{};
        ptrace(PTRACE_GET_SYSCALL_INFO, child.pid, sizeof call, &call);
        const auto name = call.op == PTRACE_SYSCALL_INFO_ENTRY ? names.find(call.entry.nr) : names.end();
        calls += name == names.end() ? "" : name->second;
    }
    wasKilled = true;
    return calls;
}

TEST(StoreCrash, KilledAtEverySystemCallLeavesAWholeListAndNoLock) {
    const auto after = encodeList<FolderRedirect>({entry("new")});
    for (const std::string before : {"", "[]", "damaged"}) {
        std::string calls;
        bool wasKilled = true;
        for (int number = 0; wasKilled && !testing::Test::HasFailure(); ++number) {
            const ScratchFolder scratch;
            const auto folder = scratch.path() / "made";
            const auto store = storeIn(folder);
            if (!before.empty()) {
                std::filesystem::create_directory(folder);
                writeFile(folder / "List.json", before);
            }
            calls = addKilledAt(number, store, wasKilled);
            SCOPED_TRACE("“" + before + "”, killed after: " + calls);
            EXPECT_FALSE(store.lock().isHeld());
            const auto left = readFile(folder / "List.json");
            EXPECT_THAT(left, testing::AnyOf(wasKilled ? before : after, after));
            store.update([](const RedirectList& unchanged) { return unchanged; });
            EXPECT_EQ(readFile(folder / "List.json"), left == after ? after : "[]");
            // Damage may be set aside twice: by the process that was killed then, and by the next.
            int asideCount = 0;
            for (const auto& file : std::filesystem::directory_iterator(folder)) {
                const auto name = file.path().filename().string();
                const bool isAside = name.starts_with("List.unreadable-173160000");
                EXPECT_TRUE(isAside ? readFile(file.path()) == "damaged"
                                    : name == "List.json" || name == "List.lock")
                    << name;
                asideCount += isAside ? 1 : 0;
            }
            EXPECT_EQ(asideCount > 0, before == "damaged");
        }
        // What would outlive a power cut too: nothing takes a place before it is on the disk.
        EXPECT_EQ(calls, before == "damaged" ? "lock lock write flush second name replace flush "
                                             : "lock lock write flush replace flush ");
    }
}
#endif

} // namespace
} // namespace ramdisk::test
