#include "RamDiskInfrastructure/Commands/ProcessCommandRunner.h"
#include "tests/support/Testing.h"

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

namespace ramdisk::test {
namespace {

/// Makes the calling thread's kernel one that has no `pidfd_open`.
bool forgetExitDescriptors() {
    std::array<sock_filter, 4> filter{{BPF_STMT(BPF_LD | BPF_W | BPF_ABS, 0),
                                       BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_pidfd_open, 0, 1),
                                       BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),
                                       BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)}};
    const sock_fprog program{filter.size(), filter.data()};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0
           && prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

TEST(ChildPlatformLinux, WithoutExitDescriptorsChildrenAreLookedAt) {
    bool isFiltered = false;
    CommandOutput closing;
    CommandOutput feeding;
    bool didTimeOut = false;
    // In a thread of its own, since the filter stays for good.
    std::thread([&] {
        isFiltered = forgetExitDescriptors() && syscall(SYS_pidfd_open, getpid(), 0) < 0;
        ProcessCommandRunner runner;
        closing = runner.run({"/bin/sh", {"-c", "exec >&- 2>&-; sleep 0.1; exit 4"}, std::nullopt, 60.0});
        feeding = runner.run({"/bin/sh", {"-c", "cat; exit 5"}, "input", std::nullopt});
        try {
            (void)runner.run({"/bin/sleep", {"60"}, std::nullopt, 0.1});
        } catch (const CommandTimeout&) {
            didTimeOut = true;
        }
    }).join();
    ASSERT_TRUE(isFiltered);
    EXPECT_EQ(closing.exitCode, 4);
    EXPECT_EQ(feeding, (CommandOutput{5, "input", "", std::nullopt}));
    EXPECT_TRUE(didTimeOut);
}

} // namespace
} // namespace ramdisk::test
