#include "tests/support/Linux/TestMachine.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <set>
#include <thread>

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/statvfs.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace ramdisk::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace fs = std::filesystem;

constexpr const char* busyHint = "\nClose files and apps using the disk, or force the eject.\n";

class Disks : public testing::Test {
protected:
    void SetUp() override {
        SKIP_UNLESS_ROOT();
        machine.emplace();
    }

    /// A file held open, on a disk.
    static int openFile(const nlohmann::json& disk) {
        return open((fs::path(disk.at("mountPoint")) / "open").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    }

    std::optional<TestMachine> machine;
};

TEST_F(Disks, LiveFromCreateToEject) {
    const auto other = machine->create("Other");
    const auto outcome = machine->run({"create", "--name", "Scratch", "--size", "512M", "--json"});
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    const auto disk = outcome.json().at("ramDisk");
    const fs::path mountPoint = disk.at("mountPoint");
    struct statvfs volume {};
    ASSERT_EQ(statvfs(mountPoint.c_str(), &volume), 0);
    constexpr std::uint64_t size = std::uint64_t{512} << 20U;
    EXPECT_EQ(volume.f_blocks * std::uint64_t{volume.f_frsize}, size);
    EXPECT_EQ(disk.at("capacity").at("bytes"), size);
    EXPECT_NE(volume.f_flag & ST_NOSUID, 0U);
    EXPECT_THAT(mountsWith("size=524288k"), ElementsAre(mountPoint.string()));
    std::array<char, 64> mark{};
    const auto length =
        getxattr(mountPoint.c_str(), "user.com.tavrin.ramdisk.created", mark.data(), mark.size());
    EXPECT_EQ(disk.at("instance"),
              std::string(mark.data(), static_cast<std::size_t>(std::max<ssize_t>(length, 0))));
    EXPECT_EQ(machine->list().at("Scratch"), disk);
    EXPECT_TRUE(fs::exists(mountPoint / ".nomedia"));

    writeFile(mountPoint / "file", "contents");
    EXPECT_EQ(readFile(mountPoint / "file"), "contents");
    const int file = openFile(machine->create("Small"));
    EXPECT_EQ(posix_fallocate(file, 0, 9 << 20), ENOSPC);
    close(file);

    EXPECT_EQ(machine->run({"eject", "Scratch", mountPoint.parent_path() / "./Small/"}).status, 0);
    EXPECT_FALSE(fs::exists(mountPoint));
    EXPECT_EQ(machine->list().size(), 1U);
    EXPECT_EQ(machine->list().at("Other"), other);
    EXPECT_EQ(machine->run({"-q", "eject", "disk1"}).out, "");
    EXPECT_THAT(machine->traces(), IsEmpty());
}

TEST_F(Disks, AreClosedToOthersOnlyWhenAsked) {
    for (const std::string access : {"everyone", "onlyMe"}) {
        const auto disk = machine->create("Mine", {"--access", access});
        EXPECT_EQ(disk.at("access"), access);
        const auto file = disk.at("mountPoint").get<std::string>() + "/secret";
        writeFile(file, "x");
        const int expected = access == "everyone" ? 0 : EACCES;
        EXPECT_EQ(inChild(nobody, [&] { return ::open(file.c_str(), O_RDONLY) < 0 ? errno : 0; }), expected);
        const auto folder = disk.at("mountPoint").get<std::string>();
        EXPECT_EQ(inChild(nobody, [&] { return ::open(folder.c_str(), O_RDONLY) < 0 ? errno : 0; }),
                  expected);
        EXPECT_EQ(inChild(nobody, [&] { return ::open(file.c_str(), O_WRONLY) < 0 ? errno : 0; }), EACCES);
        EXPECT_EQ(machine->run({"eject", "Mine"}).status, 0);
    }
}

TEST_F(Disks, MadeAtOnceByFourProcessesNeverShareAnything) {
    constexpr unsigned each = 25;
    std::vector<pid_t> makers;
    for (int maker = 0; maker < 4; ++maker) {
        makers.push_back(fork());
        if (makers.back() == 0) {
            unsigned failures = 0;
            for (unsigned index = 0; index < each; ++index) {
                failures += machine->run({"create", "--size", "4M"}).status == 0 ? 0 : 1;
            }
            _exit(static_cast<int>(failures));
        }
    }
    for (const pid_t maker : makers) {
        EXPECT_EQ(waitFor(maker), 0);
    }
    std::set<std::string> devices;
    std::set<std::string> mountPoints;
    const auto disks = machine->list();
    for (const auto& [name, disk] : disks) {
        devices.insert(disk.at("device").dump());
        mountPoints.insert(disk.at("mountPoint").get<std::string>());
    }
    EXPECT_EQ(disks.size(), 4 * each);
    EXPECT_EQ(devices.size(), 4 * each);
    EXPECT_EQ(mountPoints.size(), 4 * each);
    EXPECT_EQ(mountsWith(" ramdisk-").size(), 4 * each);

    makers.clear();
    for (int maker = 0; maker < 4; ++maker) {
        makers.push_back(machine->start({"create", "--size", "4M", "--name", "Wanted"}));
    }
    EXPECT_EQ(std::count_if(makers.begin(), makers.end(), [](pid_t maker) { return waitFor(maker) == 0; }),
              1);
    EXPECT_EQ(machine->run({"eject", "--all"}).status, 0);
    EXPECT_THAT(machine->traces(), IsEmpty());
}

TEST_F(Disks, KilledAtAnyTimeAreGoneOrWhole) {
    // From shortly after its start until after its end.
    for (int round = 0; round < 40; ++round) {
        const bool isEject = round % 2 == 1;
        if (isEject) {
            machine->create("Victim");
        }
        const pid_t child =
            machine->start(isEject ? std::vector<std::string>{"eject", "Victim"}
                                   : std::vector<std::string>{"create", "--size", "8M", "--name", "Victim"});
        std::this_thread::sleep_for(std::chrono::microseconds(250 * round));
        kill(child, SIGKILL);
        waitFor(child);
        const auto left = machine->list();
        if (!left.empty()) {
            EXPECT_TRUE(fs::exists(fs::path(left.at("Victim").at("mountPoint")) / ".nomedia"));
            EXPECT_EQ(machine->run({"eject", "Victim"}).status, 0) << round;
        }
        ASSERT_THAT(machine->traces(), IsEmpty()) << round;
    }
}

TEST_F(Disks, InUseStayUnlessForcedAndTellTheMemoryStillHeld) {
    const auto disk = machine->create("Busy");
    const auto mountPoint = disk.at("mountPoint").get<std::string>();
    const int file = openFile(disk);
    ASSERT_EQ(posix_fallocate(file, 0, 1 << 20), 0);
    const auto pid = std::to_string(getpid());

    EXPECT_THAT(machine->run({"users", "Busy"}).out, HasSubstr(pid));
    const auto refused = machine->run({"eject", "Busy"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.err, "tramdisk: The disk is in use: “" + mountPoint
                               + "” is kept busy by tramdisk_tests (" + pid + ")." + busyHint);
    EXPECT_EQ(refused.out, "");
    EXPECT_TRUE(fs::exists(mountPoint + "/open"));
    EXPECT_EQ(machine->list().at("Busy").at("attachment"), disk.at("attachment"));

    const auto forced = machine->run({"eject", "--force", "Busy"});
    EXPECT_EQ(forced.status, 0);
    EXPECT_EQ(forced.err,
              "tramdisk: note: “Busy” is ejected, but 1 MB of its memory stays in use until its last file "
              "is closed: tramdisk_tests ("
                  + pid + ").\n");
    EXPECT_FALSE(fs::exists(mountPoint));
    const auto detaching = machine->list().at("Busy");
    EXPECT_FALSE(detaching.contains("mountPoint"));
    EXPECT_EQ(detaching.at("memoryFootprint").at("bytes"), 1 << 20);
    EXPECT_EQ(machine->run({"users", "Busy"}).err, "tramdisk: disk1 is not mounted.\n");
    EXPECT_EQ(machine->run({"eject", "Busy"}).status, 1);

    // The name is not that of a mounted volume any more, and what is left of the old disk harms no new one.
    const auto again = machine->create("Busy");
    EXPECT_EQ(again.at("mountPoint"), mountPoint);
    close(file);
    EXPECT_EQ(machine->list().at("Busy"), again);
    EXPECT_EQ(machine->run({"eject", "Busy"}).status, 0);
    EXPECT_THAT(machine->traces(), IsEmpty());
}

TEST_F(Disks, WithASecondMountOrAnotherMountOnTop) {
    const fs::path mountPoint = machine->create("Twice").at("mountPoint");
    writeFile(mountPoint / "file", "kept");
    const auto second = machine->folder() / "second";
    fs::create_directory(second);
    ASSERT_EQ(mount(mountPoint.c_str(), second.c_str(), nullptr, MS_BIND, nullptr), 0);
    const auto outcome = machine->run({"eject", "Twice"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.err, HasSubstr("a second mount at " + second.string()));
    EXPECT_EQ(readFile(second / "file"), "kept") << "what others mounted is theirs";
    EXPECT_EQ(machine->list().size(), 1U);
    ASSERT_EQ(umount2(second.c_str(), 0), 0);
    EXPECT_THAT(machine->list(), IsEmpty());

    const auto covered = machine->create("Covered").at("mountPoint").get<std::string>();
    // Made before the disk was, and moved on top of it.
    ASSERT_EQ(mount("theirs", second.c_str(), "tmpfs", 0, nullptr), 0);
    const auto younger = machine->create("Younger").at("mountPoint").get<std::string>();
    ASSERT_EQ(mount("theirs", covered.c_str(), "tmpfs", 0, nullptr), 0);
    ASSERT_EQ(mount(second.c_str(), younger.c_str(), nullptr, MS_MOVE, nullptr), 0);
    for (const auto& path : {covered, younger}) {
        for (const char* force : {"-q", "--force"}) {
            const auto refused = machine->run({"eject", path, force});
            EXPECT_EQ(refused.status, 1) << path;
            EXPECT_THAT(refused.err, HasSubstr("does not show the volume")) << path;
        }
    }
    EXPECT_EQ(mountsWith("theirs").size(), 2U);
    umount2(covered.c_str(), 0);
    umount2(younger.c_str(), 0);
    EXPECT_EQ(machine->run({"eject", "--all"}).status, 0);
    EXPECT_THAT(machine->traces(), IsEmpty());
}

TEST_F(Disks, EjectedAllAtOnceGoOnAfterAFailureAndAreOnlyOnesOwn) {
    machine->create("First");
    const auto busy = machine->create("Second");
    machine->create("Third");
    machine->environment = {{"SUDO_UID", "65534"}, {"SUDO_GID", "65534"}};
    const auto others = machine->create("Another user's");
    machine->environment.clear();
    EXPECT_EQ(inChild(nobody, [&] { return openFile(others) < 0; }), 0)
        << "it is the sudo user's to write to";
    const int file = openFile(busy);
    const auto outcome = machine->run({"eject", "--all", "--json"});
    EXPECT_EQ(outcome.status, 1);
    const auto json = outcome.json();
    ASSERT_EQ(json.at("ejected").size(), 2U);
    EXPECT_EQ(json.at("ejected")[1].at("name"), "Third");
    ASSERT_EQ(json.at("failures").size(), 1U);
    EXPECT_EQ(json.at("failures")[0].at("ramDisk").at("name"), "Second");
    EXPECT_EQ(machine->list().size(), 2U);
    close(file);
    EXPECT_EQ(machine->run({"eject", "Second", "Another user's"}).status, 0);
    EXPECT_EQ(machine->run({"eject", "--all"}).out, "No RAM disks to eject.\n");
    EXPECT_THAT(machine->traces(), IsEmpty());
}

TEST_F(Disks, UnmountedByOtherMeansFreeTheirNameAtOnce) {
    const auto mountPoint = machine->create("Scratch").at("mountPoint").get<std::string>();
    ASSERT_EQ(umount2(mountPoint.c_str(), 0), 0);
    EXPECT_EQ(machine->create("Scratch").at("mountPoint"), mountPoint);
    ASSERT_EQ(umount2(mountPoint.c_str(), 0), 0);
    // Now somebody else's folder stands there.
    ASSERT_TRUE(fs::remove(mountPoint) && fs::create_directory(mountPoint));
    EXPECT_THAT(machine->list(), IsEmpty());
    EXPECT_THAT(machine->traces(), ElementsAre(mountPoint));
}

} // namespace
} // namespace ramdisk::test
