#include "RamDiskInfrastructure/Stores/FileProfileRepository.h"
#include "tests/support/ScratchFolder.h"

#include <gtest/gtest.h>

#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>

namespace ramdisk::test {
namespace {

using List = std::vector<RamDiskProfile>;

enum Ending : int { fine = 0, cannotMount = 10, noError, wrongErrno, lostList, leftovers, notSetAside };

List profiles(std::size_t count) {
    return List(count, RamDiskProfile{.id = UUID::random(), .name = "A", .size = {1024}});
}

/// Runs in a process of its own, so that the mount goes away with it.
Ending fillSmallDisk(const ScratchFolder& scratch) {
    if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0
        || mount("tmpfs", scratch.path().c_str(), "tmpfs", 0, "size=64k") != 0) {
        return cannotMount;
    }
    FileProfileRepository repository(scratch.path());
    const auto list = profiles(3);
    repository.update([&](const List&) { return list; });
    const auto names = scratch.names();
    for (const bool isDamaged : {false, true}) {
        if (isDamaged) {
            scratch.write("Startup Disks.json", "damaged");
        }
        try {
            repository.update([](const List&) { return profiles(2000); });
            return noError;
        } catch (const std::system_error& error) {
            if (error.code().value() != ENOSPC) {
                return wrongErrno;
            }
        }
        if (isDamaged ? scratch.read("Startup Disks.json") != "damaged" : repository.load() != list) {
            return lostList;
        }
        if (scratch.names() != names) {
            return leftovers;
        }
    }
    repository.update([&](const List&) { return list; });
    return scratch.names().size() == names.size() + 1 ? fine : notSetAside;
}

TEST(FullDisk, LeavesTheOldListAndNothingElse) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root, to mount";
    }
    const ScratchFolder scratch;
    const auto child = fork();
    if (child == 0) {
        int status = 1;
        try {
            status = fillSmallDisk(scratch);
        } catch (const std::exception&) {
        }
        _exit(status);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    if (WEXITSTATUS(status) == cannotMount) {
        GTEST_SKIP() << "may not mount here";
    }
    EXPECT_EQ(WEXITSTATUS(status), fine);
}

} // namespace
} // namespace ramdisk::test
