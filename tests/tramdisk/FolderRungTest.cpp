#include "tests/support/Linux/TestMachine.h"

#include <gmock/gmock.h>

#include <csignal>
#include <thread>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ramdisk::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace fs = std::filesystem;

/// The tool run by somebody who may not mount, and by root made to do without.
class FolderRung : public testing::TestWithParam<uid_t> {
protected:
    FolderRung() : machine(GetParam()) { machine.environment["TRAMDISK_HOST"] = "folder"; }

    void SetUp() override { SKIP_UNLESS_ROOT(); }

    TestMachine machine;
};
INSTANTIATE_TEST_SUITE_P(Users, FolderRung, testing::Values(nobody, 0),
                         [](const auto& row) { return std::string(row.param == 0 ? "root" : "nobody"); });

TEST_P(FolderRung, MakesListsAndRemovesDisks) {
    if (GetParam() != 0) {
        machine.environment.erase("TRAMDISK_HOST");
    }
    const auto outcome = machine.run({"create", "--json", "--size", "8M", "--name", "Zoë's \n \xff"});
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(outcome.err,
              "tramdisk: note: This user may not mount, so the disk is a folder on /dev/shm; its size is "
              "not enforced.\n");
    const auto disk = outcome.json().at("ramDisk");
    EXPECT_EQ(disk.at("name"), "Zoë's \n \uFFFD");
    EXPECT_EQ(disk.at("fileSystemName"), "folder on /dev/shm (size not enforced)");
    const auto record = nlohmann::json::parse(readFile(machine.records() / "disk1.json"));
    const auto outer = fs::path("/dev/shm/ramdisk-") += record.at("uuid").get<std::string>();
    const auto folder = outer / "Zoë's \n \xff";
    ASSERT_TRUE(fs::is_directory(folder));
    const auto more = machine.create("Closed", {"--access", "onlyMe"});
    struct stat status {};
    ASSERT_EQ(stat(more.at("mountPoint").get<std::string>().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0700U);
    EXPECT_EQ(status.st_uid, GetParam());

    // Things that a careless removal would follow, or stumble over.
    const auto outside = machine.folder() / "home/outside";
    EXPECT_EQ(inChild(GetParam(),
                      [&] {
                          fs::create_directory(outside);
                          writeFile(outside / "file", "survives");
                          fs::create_directory_symlink(outside, folder / "link");
                          fs::create_symlink(outside / "file", folder / "filelink");
                          fs::create_symlink("loop", folder / "loop");
                          fs::create_directories(folder / "sealed/inner");
                          writeFile(folder / "sealed/inner/file", "x");
                          chmod((folder / "sealed/inner").c_str(), 0);
                          chmod((folder / "sealed").c_str(), 0555);
                          return 0;
                      }),
              0);
    EXPECT_EQ(machine.run({"eject", folder.string(), "Closed"}).status, 0);
    EXPECT_EQ(readFile(outside / "file"), "survives");
    fs::permissions(outside, fs::perms(0700));
    EXPECT_THAT(machine.traces(), IsEmpty());
}

TEST_P(FolderRung, KeepsADiskInUse) {
    const auto disk = machine.create("Busy");
    const auto file = disk.at("mountPoint").get<std::string>() + "/file";
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    // The same user's process, since others' cannot be looked into.
    const pid_t user = fork();
    if (user == 0) {
        inChild(GetParam(), [&] {
            const int held = open(file.c_str(), O_CREAT | O_RDWR, 0600);
            posix_fallocate(held, 0, 1 << 20);
            prctl(PR_SET_DUMPABLE, 1);
            const pid_t self = getpid();
            if (write(ready[1], &self, sizeof self) == sizeof self) {
                pause();
            }
            return 0;
        });
        _exit(0);
    }
    pid_t holder = 0;
    ASSERT_EQ(read(ready[0], &holder, sizeof holder), sizeof holder);
    EXPECT_EQ(machine.run({"users", "Busy", "--json"}).json()[0].at("processID"), holder);
    const auto refused = machine.run({"eject", "Busy"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_THAT(refused.err,
                HasSubstr("is kept busy by tramdisk_tests (" + std::to_string(holder) + ").\nClose files"));
    EXPECT_TRUE(fs::exists(file));
    const auto forced = machine.run({"eject", "Busy", "--force"});
    EXPECT_EQ(forced.status, 0);
    EXPECT_THAT(forced.err,
                HasSubstr("1 MB of its memory stays in use until its last file is closed: tramdisk_tests"));
    EXPECT_EQ(machine.list().at("Busy").at("memoryFootprint").at("bytes"), 1 << 20);
    kill(holder, SIGKILL);
    waitFor(user);
    EXPECT_THAT(machine.list(), IsEmpty());
    EXPECT_THAT(machine.traces(), IsEmpty());
    close(ready[0]);
    close(ready[1]);
}

TEST_P(FolderRung, KilledHalfWayLeavesNothingOrAWholeDisk) {
    for (int round = 0; round < 30; ++round) {
        const bool isEject = round % 2 == 1;
        if (isEject) {
            const fs::path folder = machine.create("Victim").at("mountPoint");
            for (int index = 0; index < 200; ++index) {
                writeFile(folder / std::to_string(index), "x");
            }
        }
        const pid_t child =
            machine.start(isEject ? std::vector<std::string>{"eject", "Victim"}
                                  : std::vector<std::string>{"create", "--size", "8M", "--name", "Victim"});
        std::this_thread::sleep_for(std::chrono::microseconds(300 * round));
        kill(child, SIGKILL);
        waitFor(child);
        const auto left = machine.list();
        if (!left.empty()) {
            const auto files = std::distance(fs::directory_iterator(left.at("Victim").at("mountPoint")), {});
            EXPECT_EQ(files, isEject ? 202 : 2);
            EXPECT_EQ(machine.run({"eject", "Victim"}).status, 0) << round;
        }
        ASSERT_THAT(machine.traces(), IsEmpty()) << round;
    }
}

TEST(WithoutRights, OneSentenceTellsWhatIsMissing) {
    SKIP_UNLESS_ROOT();
    TestMachine machine(nobody);
    machine.environment["TRAMDISK_HOST"] = "kernel";
    const auto outcome = machine.run({"create", "--size", "8M"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err,
              "tramdisk: Could not format the RAM disk: could not mount a tmpfs: Operation not permitted\n");
    EXPECT_THAT(machine.traces(), IsEmpty());
    machine.environment["TRAMDISK_HOST"] = "folder";
    EXPECT_EQ(machine.run({"create", "--size", "8M", "--format", "apfs"}).err,
              "tramdisk: Could not format the RAM disk: APFS volumes need the right to mount, which this "
              "user does not "
              "have.\n");
}

} // namespace
} // namespace ramdisk::test
