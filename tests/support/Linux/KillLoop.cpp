#include "tests/support/Linux/KillLoop.h"

#include "RamDiskInfrastructure/Commands/FileDescriptor.h"
#include "tests/support/Linux/TestMachine.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <stdexcept>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#if defined(__has_feature)
#    if __has_feature(thread_sanitizer) && !defined(__SANITIZE_THREAD__)
#        define __SANITIZE_THREAD__
#    endif
#endif
#ifdef __SANITIZE_THREAD__
/// What is started here may start threads of its own, though a thread of ours forked it.
extern "C" const char* __tsan_default_options();
extern "C" const char* __tsan_default_options() {
    return "die_after_fork=0";
}
#endif

namespace ramdisk::test {

namespace {

/// Has the kernel ask before the calling thread, or a child of it, changes something that lasts.
/// @returns where it asks.
FileDescriptor askBeforeChanges() {
    std::vector<sock_filter> filter{BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
    for (const long call :
         {SYS_umount2,  SYS_move_mount,      SYS_fsmount,   SYS_mount,    SYS_ioctl,     SYS_mkdirat,
          SYS_unlinkat, SYS_renameat2,       SYS_renameat,  SYS_linkat,   SYS_symlinkat, SYS_fsetxattr,
          SYS_setxattr, SYS_ftruncate,       SYS_fchmod,    SYS_fchmodat, SYS_fchownat,  SYS_write,
          SYS_pwrite64, SYS_copy_file_range, SYS_fallocate,
#ifdef SYS_mkdir
          SYS_mkdir,    SYS_rmdir,           SYS_unlink,    SYS_rename,   SYS_link,      SYS_symlink,
          SYS_chmod,    SYS_chown,
#endif
          SYS_fsync}) {
        filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned>(call), 0, 1));
        filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF));
    }
    filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_openat, 0, 3));
    filter.push_back(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args) + 2 * sizeof(__u64)));
    filter.push_back(BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, O_CREAT, 0, 1));
    filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF));
    filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    const sock_fprog program{static_cast<unsigned short>(filter.size()), filter.data()};
    prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    return FileDescriptor(static_cast<int>(
        syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_NEW_LISTENER, &program)));
}

struct Run {
    /// Calls that were about to change something.
    int calls = 0;
    /// Absent when it was killed.
    std::optional<int> status{};
};

/// Lets the calls of the process through until one is the `fatal`th.
Run watch(pid_t child, const FileDescriptor& questions, int fatal) {
    Run run;
    const FileDescriptor end(static_cast<int>(syscall(SYS_pidfd_open, child, 0)));
    for (;;) {
        std::array<pollfd, 2> ready{{{questions.get(), POLLIN, 0}, {end.get(), POLLIN, 0}}};
        if (poll(ready.data(), ready.size(), -1) < 0) {
            continue;
        }
        if ((ready[1].revents & POLLIN) != 0) {
            run.status = waitFor(child);
            return run;
        }
        seccomp_notif question{};
        if (ioctl(questions.get(), SECCOMP_IOCTL_NOTIF_RECV, &question) != 0) {
            continue; // Who asked is gone.
        }
        if (run.calls++ == fatal) {
            kill(child, SIGKILL);
            waitFor(child);
            return run;
        }
        seccomp_notif_resp answer{question.id, 0, 0, SECCOMP_USER_NOTIF_FLAG_CONTINUE};
        ioctl(questions.get(), SECCOMP_IOCTL_NOTIF_SEND, &answer);
    }
}

Run runKilledAt(int fatal, const std::function<pid_t()>& start) {
    pid_t child = -1;
    FileDescriptor questions;
    // In a thread of its own, since the filter stays for good.
    std::thread([&] {
        questions = askBeforeChanges();
        child = questions ? start() : -1;
    }).join();
    if (child < 0) {
        throw std::runtime_error("this kernel does not let a test stop a program at its system calls");
    }
    return watch(child, questions, fatal);
}

} // namespace

void killAtEveryCall(const KillLoop& loop) {
    loop.prepare();
    const auto whole = runKilledAt(-1, loop.start);
    loop.check(whole.status);
    constexpr int fewest = 4;
    ASSERT_GT(whole.calls, fewest) << "too few points to have been tried at all";
    const auto* wanted = std::getenv("TRAMDISK_KILL_POINTS");
    const int points = std::min(whole.calls, wanted != nullptr ? std::atoi(wanted) : loop.most);
    for (int point = 0; point < points && !testing::Test::HasFatalFailure(); ++point) {
        const int call = point * whole.calls / points;
        SCOPED_TRACE("killed at change " + std::to_string(call) + " of " + std::to_string(whole.calls));
        loop.prepare();
        loop.check(runKilledAt(call, loop.start).status);
    }
}

} // namespace ramdisk::test
