#include "RamDiskInfrastructure/Linux/Mounting/LoopDevice.h"
#include "tests/tramdisk/Disks.h"

#include <array>
#include <atomic>
#include <csignal>
#include <functional>
#include <optional>
#include <thread>

#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>

namespace ramdisk::test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

namespace fs = std::filesystem;

class EjectHazards : public Disks {};

INSTANTIATE_TEST_SUITE_P(Kinds, EjectHazards, testing::Values(tmpfsKind, loopKind), Disks::nameOf);

/// A process of `user` that writes a new file to the folder again and again until the folder is gone for
/// long.
pid_t startWriter(uid_t user, const fs::path& folder) {
    const pid_t child = fork();
    if (child == 0) {
        if (user != 0 && setuid(user) != 0) {
            _exit(125);
        }
        for (unsigned count = 0;; ++count) {
            const auto file = folder / ("late" + std::to_string(count % 1000));
            const int opened = open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
            if (opened >= 0) {
                static_cast<void>(write(opened, "late", 4));
                close(opened);
            }
        }
    }
    return child;
}

TEST_P(EjectHazards, WhatIsWrittenTooLateIsRefusedOrToldAndKept) {
    // Only root can still write where the volume was, so only what root wrote has to be told.
    for (const uid_t user : {nobody, uid_t{0}}) {
        for (int round = 0; round < 10; ++round) {
            const auto disk = create("Work");
            const auto root = mountPointOf(disk);
            ASSERT_EQ(chmod(root.c_str(), 0777), 0);
            const pid_t writer = startWriter(user, root);
            auto outcome = machine->run({"eject", "Work"});
            for (int attempt = 0; outcome.status != 0 && attempt < 300; ++attempt) {
                outcome = machine->run({"eject", "Work"});
            }
            kill(writer, SIGKILL);
            waitFor(writer);
            ASSERT_EQ(outcome.status, 0) << outcome.err;
            EXPECT_FALSE(fs::exists(root)) << "the path is not free";
            std::size_t kept = 0;
            for (const auto& entry : fs::directory_iterator(machine->media())) {
                EXPECT_THAT(outcome.err, HasSubstr("kept in “" + entry.path().string() + "”"));
                EXPECT_EQ(user, 0U) << entry.path();
                EXPECT_FALSE(fs::is_empty(entry.path()));
                ++kept;
            }
            EXPECT_EQ(outcome.err.empty(), kept == 0) << outcome.err;
            for (const auto& entry : fs::directory_iterator(machine->media())) {
                fs::remove_all(entry.path());
            }
        }
    }
    expectNoTraces();
}

TEST_P(EjectHazards, ADiskNamedAgainAndAgainIsEjectedOnceHoweverFullItGetsMeanwhile) {
    const auto root = mountPointOf(create("Work"));
    const pid_t writer = fork();
    if (writer == 0) {
        const int file = open((root / "file").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
        for (unsigned turn = 0;; ++turn) {
            // Another size each time.
            const auto end = static_cast<off_t>(turn * 7919 % 1000) * 4096;
            if (ftruncate(file, 0) != 0 || posix_fallocate(file, 0, end + 4096) != 0) {
                _exit(1);
            }
        }
    }
    std::vector<std::string> arguments{"eject", "--force"};
    arguments.resize(40, "Work");
    arguments.emplace_back("disk1");
    const auto outcome = machine->run(arguments);
    kill(writer, SIGKILL);
    waitFor(writer);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "“Work” is ejected.\n");
    EXPECT_EQ(machine->list().size(), 0U);
    expectNoTraces();
}

TEST_P(EjectHazards, FilesInAnUncoveredMountFolderDoNotCostTheNextDiskItsPlace) {
    const auto root = mountPointOf(create("Work"));
    ASSERT_EQ(umount2(root.c_str(), MNT_DETACH), 0);
    struct stat status {};
    ASSERT_EQ(stat(root.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0500U);
    writeFile(root / "late", "late");
    const auto told = machine->run({"list"});
    EXPECT_THAT(told.err, HasSubstr("A program wrote to “Work” after it was ejected."));
    EXPECT_EQ(mountPointOf(create("Work")), root);
    EXPECT_EQ(readFile(root.string() + " (written after its eject)/late"), "late");
    eject("Work");
    fs::remove_all(root.string() + " (written after its eject)");

    // What is not ours stays, and where the disk is instead is told.
    fs::create_directories(root);
    const auto moved = machine->run(creation("Work"));
    EXPECT_THAT(moved.err, HasSubstr("is mounted at " + root.string() + " 2"));
    eject("Work");
    fs::remove(root);
    expectNoTraces();
}

/// A process with a mount namespace of its own, in which the disk is mounted elsewhere as well: its usual
/// place goes with the mount folder.
pid_t startInNamespace(const fs::path& disk, const fs::path& elsewhere) {
    std::array<int, 2> ready{};
    EXPECT_EQ(pipe2(ready.data(), O_CLOEXEC), 0);
    const pid_t child = fork();
    if (child == 0) {
        // Also when the test fails, or is killed.
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        const bool isAlone = unshare(CLONE_NEWNS) == 0
                             && mount("", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0
                             && mount(disk.c_str(), elsewhere.c_str(), nullptr, MS_BIND, nullptr) == 0;
        static_cast<void>(write(ready[1], isAlone ? "y" : "n", 1));
        pause();
        _exit(0);
    }
    char answer = 'n';
    EXPECT_EQ(read(ready[0], &answer, 1), 1);
    EXPECT_EQ(answer, 'y');
    close(ready[0]);
    close(ready[1]);
    return child;
}

TEST_P(EjectHazards, WhatKeepsTheMemoryOutOfSightIsToldAndListedUntilItIsGone) {
    const auto elsewhere = machine->folder() / "elsewhere";
    fs::create_directory(elsewhere);
    pid_t viewer = 0;
    std::optional<LoopDevice> loop;
    struct Row {
        const char* told;
        std::function<void(const fs::path& disk)> hold;
        std::function<void()> release;
    };
    const std::array<Row, 3> rows{
        {{"a second mount at",
          [&](const fs::path& disk) {
              ASSERT_EQ(mount((disk / "folder").c_str(), elsewhere.c_str(), nullptr, MS_BIND, nullptr), 0);
          },
          [&] { EXPECT_EQ(umount2(elsewhere.c_str(), 0), 0); }},
         {"a mount at", [&](const fs::path& disk) { viewer = startInNamespace(disk, elsewhere); },
          [&] {
              kill(viewer, SIGKILL);
              waitFor(viewer);
          }},
         {"upon its file image",
          [&](const fs::path& disk) {
              const FileDescriptor file(open((disk / "folder/image").c_str(), O_RDWR | O_CLOEXEC));
              loop = LoopDevice::attach(file, "test", ByteCount{mebibyte});
          },
          [&] { loop.reset(); }}}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.told);
        const auto root = mountPointOf(create("Work"));
        fs::create_directory(root / "folder");
        writeFile(root / "folder/image", std::string(mebibyte, 'x'));
        row.hold(root);
        const auto ejected = machine->run({"eject", "--force", "Work"});
        EXPECT_EQ(ejected.status, 0);
        EXPECT_THAT(ejected.err, HasSubstr(row.told));
        const auto listed = machine->list();
        ASSERT_EQ(listed.count("Work"), 1U);
        EXPECT_FALSE(listed.at("Work").contains("mountPoint"));
        EXPECT_GE(listed.at("Work").at("memoryFootprint").at("bytes").get<std::uint64_t>(), mebibyte);
        EXPECT_THAT(machine->run({"eject", "Work"}).err, HasSubstr(row.told));
        row.release();
        EXPECT_THAT(machine->list(), IsEmpty());
        expectNoTraces();
    }
}

TEST_P(EjectHazards, AVolumeMountedOnTheDiskIsNamedAndNeverLost) {
    const auto root = mountPointOf(create("Work"));
    const auto inner = root / "inner";
    fs::create_directory(inner);
    ASSERT_EQ(mount("none", inner.c_str(), "tmpfs", 0, nullptr), 0);
    writeFile(inner / "file", "precious");
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"eject", "Work"}, {"eject", "Work", "--force"}}) {
        const auto refused = machine->run(arguments);
        EXPECT_EQ(refused.status, 1);
        EXPECT_THAT(refused.err, HasSubstr("another volume is mounted on it, at “" + inner.string() + "”."));
        EXPECT_EQ(readFile(inner / "file"), "precious");
    }
    ASSERT_EQ(umount2(inner.c_str(), 0), 0);
    eject("Work");
    expectNoTraces();
}

TEST(FolderDisks, AreNotCalledEjectedWhileFilesOfThemStay) {
    SKIP_UNLESS_ROOT();
    const TestMachine machine(65534);
    const fs::path root = machine.create("Work").at("mountPoint").get<std::string>();
    fs::create_directory(root / "root’s");
    writeFile(root / "root’s/file", "stays");
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(machine.run({"eject", "Work"}).status, 1);
        EXPECT_EQ(machine.list().count("Work"), 1U);
    }
    fs::remove_all(root / "root’s");
    EXPECT_THAT(machine.list(), IsEmpty());
    EXPECT_THAT(machine.traces(), IsEmpty());
}

} // namespace
} // namespace ramdisk::test
