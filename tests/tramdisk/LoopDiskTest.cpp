#include "RamDiskInfrastructure/Linux/Mounting/FreeSpaceTrimming.h"
#include "tests/support/Linux/TestMachine.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <fstream>
#include <sstream>
#include <thread>

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace ramdisk::test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

namespace fs = std::filesystem;

constexpr std::uint64_t mebibyte = std::uint64_t{1} << 20U;

struct Format {
    const char* name;
    std::uint64_t minimum;
    bool isEncrypted = false;
};

class LoopDisks : public testing::Test {
protected:
    void SetUp() override {
        SKIP_UNLESS_ROOT();
        machine.emplace();
    }

    /// A small journaled disk.
    nlohmann::json createJournaled(const std::string& name) const {
        const auto outcome =
            machine->run({"create", "--json", "--size", "16M", "--format", "jhfs+", "--name", name});
        EXPECT_EQ(outcome.status, 0) << outcome.err;
        return outcome.json().at("ramDisk");
    }

    static int openFile(const nlohmann::json& disk) {
        return open((fs::path(disk.at("mountPoint")) / "open").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    }

    std::optional<TestMachine> machine;
};

/// The loop device that carries what is mounted there; absent on a tmpfs.
std::optional<fs::path> deviceBelow(const fs::path& mountPoint) {
    struct stat status {};
    if (stat(mountPoint.c_str(), &status) != 0 || major(status.st_dev) != 7) {
        return std::nullopt;
    }
    return "/dev/loop" + std::to_string(minor(status.st_dev));
}

/// Everything that a disk of a format promises, on a mounted one.
void expectWhole(const nlohmann::json& disk, std::uint64_t size, const std::string& access) {
    const fs::path mountPoint = disk.at("mountPoint");
    EXPECT_EQ(disk.at("capacity").at("bytes"), size);
    EXPECT_EQ(disk.at("access"), access);
    EXPECT_FALSE(fs::exists(mountPoint / "lost+found"));
    std::array<char, 64> mark{};
    const auto length =
        getxattr(mountPoint.c_str(), "user.com.tavrin.ramdisk.created", mark.data(), mark.size());
    EXPECT_EQ(disk.at("instance"),
              std::string(mark.data(), static_cast<std::size_t>(std::max<ssize_t>(length, 0))));
    struct stat status {};
    ASSERT_EQ(stat(mountPoint.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, access == "onlyMe" ? 0700U : 0755U);
    EXPECT_EQ(status.st_uid, nobody);
    EXPECT_EQ(status.st_gid, nobody);
    if (const auto device = deviceBelow(mountPoint)) {
        EXPECT_EQ(readFile(fs::path("/sys/fs/ext4") / device->filename() / "reserved_clusters"), "0\n");
        if (access == "onlyMe") {
            ASSERT_EQ(stat(device->c_str(), &status), 0);
            EXPECT_EQ(status.st_mode & 0777U, 0600U);
        }
    }
    const auto asOwner = inChild(nobody, [&] {
        std::error_code error;
        fs::create_directories(mountPoint / "a/b", error);
        writeFile(mountPoint / "a/b/file", "contents");
        const int file = open((mountPoint / "big").c_str(), O_RDWR | O_CREAT, 0600);
        const auto most = static_cast<off_t>(size);
        const int tooMuch = posix_fallocate(file, 0, most + 4096);
        return tooMuch == ENOSPC && ftruncate(file, 0) == 0 && posix_fallocate(file, 0, most * 7 / 10) == 0
                       && readFile(mountPoint / "a/b/file") == "contents"
                   ? 0
                   : 1;
    });
    EXPECT_EQ(asOwner, 0) << "its owner can write to it, up to its size and not beyond";
}

TEST_F(LoopDisks, OfEveryFormatAreWhatWasAskedFor) {
    machine->environment = {{"SUDO_UID", "65534"}, {"SUDO_GID", "65534"}};
    ASSERT_EQ(chown((machine->folder() / "home").c_str(), nobody, nobody), 0);
    for (const auto& format : {Format{"hfs+", 4}, Format{"jhfs+", 16}, Format{"apfs", 8}, Format{"apfsx", 8},
                               Format{"apfs", 8, true}, Format{"apfsx", 8, true}}) {
        for (const auto size : {format.minimum * mebibyte, 1024 * mebibyte}) {
            for (const std::string access : {"everyone", "onlyMe"}) {
                SCOPED_TRACE(fmt::format("{} {} {} {}", format.name, size, access, format.isEncrypted));
                std::vector<std::string> arguments{"create",   "--json",    "--name",   "Scratch",
                                                   "--format", format.name, "--access", access};
                arguments.insert(arguments.end(), {"--size", fmt::format("{}M", size / mebibyte)});
                if (format.isEncrypted) {
                    arguments.emplace_back("--encrypt");
                }
                const auto outcome = machine->run(arguments);
                ASSERT_EQ(outcome.status, 0) << outcome.err;
                const auto disk = outcome.json().at("ramDisk");
                EXPECT_EQ(disk.at("isEncrypted"), format.isEncrypted);
                EXPECT_EQ(machine->list().at("Scratch"), disk);
                expectWhole(disk, size, access);
                EXPECT_EQ(machine->run({"eject", "Scratch"}).status, 0);
                EXPECT_THAT(machine->traces(), IsEmpty());
            }
        }
    }
}

TEST_F(LoopDisks, ThatThisMachineCannotMakeAreRefusedBeforeAnythingIsAllocated) {
    for (const std::string format : {"hfs+", "jhfs+", "exfat", "fat32"}) {
        for (const std::string dryRun : {"--json", "--dry-run"}) {
            const auto outcome =
                machine->run({"create", "--size", "64M", "--format", format, "--encrypt", dryRun});
            EXPECT_EQ(outcome.status, 1);
            EXPECT_THAT(outcome.err, HasSubstr(" can’t be encrypted. Choose APFS or turn encryption off.\n"));
        }
    }
    for (const auto& [format, type, name] :
         {std::tuple{"exfat", "exfat", "ExFAT"}, std::tuple{"fat32", "vfat", "MS-DOS (FAT32)"}}) {
        if (readFile("/proc/filesystems").find(fmt::format("\t{}\n", type)) == std::string::npos) {
            const auto outcome =
                machine->run({"create", "--size", "64M", "--format", format, "--name", "STICK"});
            EXPECT_EQ(outcome.status, 1);
            EXPECT_EQ(outcome.err,
                      fmt::format("tramdisk: Could not format the RAM disk: this kernel has no {} "
                                  "file system, which {} needs.\n",
                                  type, name));
        }
    }
    EXPECT_THAT(machine->traces(), IsEmpty());
    EXPECT_FALSE(fs::exists(machine->records()) && !fs::is_empty(machine->records()));
}

TEST_F(LoopDisks, InUseStayUnlessForcedWhichStopsTheirWriters) {
    const auto disk = createJournaled("Busy");
    const auto mountPoint = disk.at("mountPoint").get<std::string>();
    const int file = openFile(disk);
    ASSERT_EQ(posix_fallocate(file, 0, mebibyte), 0);
    const auto user = fmt::format("tramdisk_tests ({})", getpid());
    const auto refused = machine->run({"eject", "Busy"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.err,
              fmt::format("tramdisk: The disk is in use: “{}” is kept busy by {}.\nClose files and "
                          "apps using the disk, or force the eject.\n",
                          mountPoint, user));
    EXPECT_EQ(machine->list().at("Busy").at("attachment"), disk.at("attachment"));
    EXPECT_EQ(pwrite(file, "x", 1, 0), 1);

    const auto forced = machine->run({"eject", "--force", "Busy"});
    EXPECT_EQ(forced.status, 0);
    EXPECT_THAT(forced.err, HasSubstr("of its memory stays in use until its last file is closed: " + user));
    EXPECT_EQ(pwrite(file, "x", 1, 0), -1) << "nobody may go on writing to what is thrown away";
    EXPECT_FALSE(fs::exists(mountPoint));
    const auto detaching = machine->list().at("Busy");
    EXPECT_FALSE(detaching.contains("mountPoint"));
    EXPECT_GE(detaching.at("memoryFootprint").at("bytes"), mebibyte);
    EXPECT_EQ(machine->run({"eject", "Busy"}).status, 1);
    // What is left of it harms no new one of its name.
    const auto again = createJournaled("Busy");
    close(file);
    EXPECT_EQ(machine->list().at("Busy"), again);
    EXPECT_EQ(machine->run({"eject", "Busy"}).status, 0);
    EXPECT_THAT(machine->traces(), IsEmpty());
}

TEST_F(LoopDisks, UnmountedByHandAreHealed) {
    const auto disk = createJournaled("Taken");
    const auto mountPoint = disk.at("mountPoint").get<std::string>();
    const int file = openFile(disk);
    ASSERT_EQ(posix_fallocate(file, 0, mebibyte), 0);
    ASSERT_EQ(umount2(mountPoint.c_str(), MNT_DETACH), 0);
    const auto detaching = machine->list().at("Taken");
    EXPECT_FALSE(detaching.contains("mountPoint"));
    EXPECT_GE(detaching.at("memoryFootprint").at("bytes"), mebibyte);
    const auto forced = machine->run({"eject", "--force", "Taken"});
    EXPECT_EQ(forced.status, 0);
    EXPECT_THAT(forced.err, HasSubstr(fmt::format("tramdisk_tests ({})", getpid())));
    close(file);
    EXPECT_THAT(machine->list(), IsEmpty());
    EXPECT_THAT(machine->traces(), IsEmpty());

    ASSERT_EQ(umount2(createJournaled("Gone").at("mountPoint").get<std::string>().c_str(), 0), 0);
    EXPECT_THAT(machine->list(), IsEmpty());
    EXPECT_THAT(machine->traces(), IsEmpty());
}

TEST_F(LoopDisks, AreEjectedByOneOfTwoAtOnce) {
    for (int round = 0; round < 10; ++round) {
        const auto reference = createJournaled("Wanted").at("device").at("bsdName").get<std::string>();
        std::array<Outcome, 2> outcomes;
        {
            std::thread other([&] { outcomes[1] = machine->run({"eject", reference}); });
            outcomes[0] = machine->run({"eject", reference});
            other.join();
        }
        const auto& loser = outcomes[outcomes[0].status == 0 ? 1 : 0];
        EXPECT_EQ(outcomes[0].status + outcomes[1].status, 1);
        EXPECT_EQ(loser.err, fmt::format("tramdisk: No RAM disk matches “{}”.\n", reference));
        EXPECT_THAT(machine->traces(), IsEmpty());
    }
}

TEST_F(LoopDisks, KilledAtAnyTimeAreGoneOrWhole) {
    for (int round = 0; round < 40; ++round) {
        const bool isEject = round % 2 == 1;
        if (isEject) {
            createJournaled("Victim");
        }
        const pid_t child =
            machine->start(isEject ? std::vector<std::string>{"eject", "Victim"}
                                   : std::vector<std::string>{"create", "--size", "16M", "--format", "jhfs+",
                                                              "--name", "Victim"});
        std::this_thread::sleep_for(std::chrono::microseconds((isEject ? 500 : 3000) * round));
        kill(child, SIGKILL);
        waitFor(child);
        const auto left = machine->list();
        if (!left.empty()) {
            EXPECT_TRUE(fs::exists(fs::path(left.at("Victim").at("mountPoint")) / ".nomedia")) << round;
            EXPECT_EQ(machine->run({"eject", "Victim"}).status, 0) << round;
        }
        ASSERT_THAT(machine->traces(), IsEmpty()) << round;
    }
}

TEST_F(LoopDisks, GiveTheMemoryOfDeletedFilesBackWhenTrimmed) {
    const auto outcome =
        machine->run({"create", "--json", "--size", "512M", "--format", "jhfs+", "--name", "Filled"});
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    const fs::path mountPoint = outcome.json().at("ramDisk").at("mountPoint");
    const auto sharedMemory = [] {
        // The memory file has no name, so only the sum of all such memory tells of it, in mebibytes.
        std::istringstream lines(readFile("/proc/meminfo"));
        std::string word;
        while (lines >> word && word != "Shmem:") {
        }
        std::uint64_t kibibytes = 0;
        lines >> kibibytes;
        return kibibytes / 1024;
    };
    const auto empty = sharedMemory();
    {
        const std::string block(mebibyte, 'x');
        std::ofstream file(mountPoint / "big", std::ios::binary);
        for (int index = 0; index < 480; ++index) {
            file << block;
        }
    }
    const int root = open(mountPoint.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(syncfs(root), 0);
    close(root);
    const auto full = sharedMemory();
    fs::remove(mountPoint / "big");
    RamDisk disk{DeviceIdentifier::wholeDisk(0), "Filled", {}};
    disk.mountPoint = mountPoint;
    FreeSpaceTrimming trimming;
    trimming.trim(disk);
    EXPECT_GT(sharedMemory() + 16, full) << "a disk of somebody else’s is left alone";
    disk.isCreatedByRamDisk = true;
    trimming.trim(disk);
    const auto trimmed = sharedMemory();
    EXPECT_EQ(machine->run({"eject", "Filled"}).status, 0);
    if (full < empty + 400 || full > empty + 600 || sharedMemory() > empty + 16) {
        GTEST_SKIP() << "other programs use shared memory at the same time";
    }
    EXPECT_LT(trimmed, empty + 32);
}

} // namespace
} // namespace ramdisk::test
