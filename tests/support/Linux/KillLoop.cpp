#include "tests/support/Linux/KillLoop.h"

#include "tests/support/Linux/TestMachine.h"

#include <sys/ptrace.h>
#include <sys/syscall.h>

namespace ramdisk::test {

namespace {

/// Starts the work in a child process that stops before it begins, and has its children stop as well.
pid_t startTraced(const std::function<void()>& work) {
    const pid_t child = fork();
    if (child == 0) {
        // Looking for leaks takes tracing, which only one at a time can do.
        const char* options = std::getenv("ASAN_OPTIONS");
        setenv("ASAN_OPTIONS", (std::string(options != nullptr ? options : "") + ":detect_leaks=0").c_str(),
               1);
        if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0 && raise(SIGSTOP) == 0) {
            work();
        }
        _exit(0);
    }
    int status = 0;
    constexpr long options = PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL | PTRACE_O_TRACEEXEC
                             | PTRACE_O_TRACEFORK | PTRACE_O_TRACEVFORK | PTRACE_O_TRACECLONE;
    if (waitpid(child, &status, 0) != child || !WIFSTOPPED(status)
        || ptrace(PTRACE_SETOPTIONS, child, nullptr, options) != 0) {
        throw std::runtime_error("this machine does not let a test stop a program at its system calls");
    }
    return child;
}

/// What the stopped thread is about to do, if that outlives its process: a name for what has to come in the
/// right order, nothing for the rest.
std::optional<std::string> changeAhead(pid_t thread) {
    static const std::set<std::uint64_t> changes{
        SYS_umount2,   SYS_move_mount, SYS_fsmount,   SYS_mount,           SYS_ioctl,     SYS_mkdirat,
        SYS_unlinkat,  SYS_symlinkat,  SYS_fsetxattr, SYS_setxattr,        SYS_pwrite64,  SYS_fchmod,
        SYS_ftruncate, SYS_fchmodat,   SYS_fchownat,  SYS_copy_file_range, SYS_fallocate,
#ifdef SYS_mkdir
        SYS_mkdir,     SYS_rmdir,      SYS_unlink,    SYS_symlink,         SYS_chmod,     SYS_chown,
#endif
    };
    static const std::map<std::uint64_t, std::string> named{
        {SYS_write, "write "},      {SYS_fsync, "flush "},       {SYS_linkat, "link "},
        {SYS_renameat, "replace "}, {SYS_renameat2, "replace "},
#ifdef SYS_mkdir
        {SYS_link, "link "},        {SYS_rename, "replace "},
#endif
    };
    __ptrace_syscall_info call{};
    if (ptrace(PTRACE_GET_SYSCALL_INFO, thread, sizeof call, &call) <= 0
        || call.op != PTRACE_SYSCALL_INFO_ENTRY) {
        return std::nullopt;
    }
    // What is written into a pipe lasts no longer than its reader; a sanitizer tries pointers in this way.
    std::error_code error;
    if (call.entry.nr == SYS_write
        && std::filesystem::read_symlink(
               "/proc/" + std::to_string(thread) + "/fd/" + std::to_string(call.entry.args[0]), error)
               .native()
               .starts_with("pipe:")) {
        return std::nullopt;
    }
    if (const auto found = named.find(call.entry.nr); found != named.end()) {
        return found->second;
    }
    const bool makes = call.entry.nr == SYS_openat && (call.entry.args[2] & O_CREAT) != 0;
    return makes || changes.contains(call.entry.nr) ? std::optional<std::string>("") : std::nullopt;
}

struct Run {
    /// Calls that were about to change something.
    int calls = 0;
    std::string names{};
    /// Absent when it was killed.
    std::optional<int> status{};
};

/// Lets the calls of the work through until one is the `fatal`th, and waits for whatever it started.
Run runKilledAt(int fatal, const std::function<void()>& work) {
    Run run;
    const pid_t child = startTraced(work);
    std::set<pid_t> known{child};
    int status = 0;
    ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
    for (pid_t thread = 0; (thread = waitpid(-1, &status, __WALL)) > 0;) {
        if (!WIFSTOPPED(status)) {
            if (thread == child && WIFEXITED(status)) {
                run.status = WEXITSTATUS(status);
            }
            continue;
        }
        const int signal = WSTOPSIG(status);
        const bool isCall = signal == (SIGTRAP | 0x80);
        if (const auto change = isCall ? changeAhead(thread) : std::nullopt) {
            run.names += *change;
            if (run.calls++ == fatal) {
                kill(child, SIGKILL);
            }
        }
        // Tracing's own stops, of which each new thread begins with one, are no signals to the program.
        const bool isOwn = isCall || signal == SIGTRAP || (known.insert(thread).second && signal == SIGSTOP);
        ptrace(PTRACE_SYSCALL, thread, nullptr, isOwn ? 0 : signal);
    }
    return run;
}

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
/// Where everything takes some ten times as long, and the same places were tried without.
constexpr int share = 5;
#else
constexpr int share = 1;
#endif

} // namespace

std::string killAtEveryCall(const KillLoop& loop) {
    loop.prepare();
    const auto whole = runKilledAt(-1, loop.work);
    loop.check(whole.status);
    constexpr int fewest = 4;
    EXPECT_GT(whole.calls, fewest) << "too few points to have been tried at all";
    const auto* wanted = std::getenv("TRAMDISK_KILL_POINTS");
    const int points = std::min(whole.calls, wanted != nullptr ? std::atoi(wanted) : loop.most / share);
    for (int point = 0; point < points && !testing::Test::HasFatalFailure(); ++point) {
        const int call = point * whole.calls / points;
        SCOPED_TRACE("killed at change " + std::to_string(call) + " of " + std::to_string(whole.calls));
        loop.prepare();
        loop.check(runKilledAt(call, loop.work).status);
    }
    return whole.names;
}

} // namespace ramdisk::test
