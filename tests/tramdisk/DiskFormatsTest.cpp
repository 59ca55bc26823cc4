#include "RamDiskInfrastructure/Linux/Mounting/FreeSpaceTrimming.h"
#include "tests/tramdisk/Disks.h"

#include <sys/statvfs.h>
#include <sys/sysmacros.h>

namespace ramdisk::test {
namespace {

/// The loop device that carries what is mounted there; absent on a tmpfs.
std::optional<fs::path> deviceBelow(const fs::path& mountPoint) {
    struct stat status {};
    if (stat(mountPoint.c_str(), &status) != 0 || major(status.st_dev) != 7) {
        return std::nullopt;
    }
    return "/dev/loop" + std::to_string(minor(status.st_dev));
}

/// The error of opening something as another user than its owner; zero for none.
int errorOfOpening(const fs::path& path, int flags) {
    constexpr uid_t somebodyElse = 65533;
    return inChild(somebodyElse, [&] { return open(path.c_str(), flags | O_CLOEXEC) < 0 ? errno : 0; });
}

uid_t ownerOf(const fs::path& path) {
    struct stat status {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status.st_uid;
}

struct Format {
    const char* name;
    std::uint64_t minimum;
    bool isEncrypted = false;
};

/// Everything that a disk of a format promises, on a mounted one.
void expectWhole(const nlohmann::json& disk, std::uint64_t size, const std::string& access) {
    const auto mountPoint = mountPointOf(disk);
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
    // What root makes below the home folder of the user behind sudo is that user's.
    for (auto folder = mountPoint.parent_path(); access == "onlyMe" && folder.filename() != "home";
         folder = folder.parent_path()) {
        ASSERT_EQ(stat(folder.c_str(), &status), 0) << folder;
        EXPECT_EQ(status.st_uid, nobody) << folder;
        EXPECT_EQ(status.st_gid, nobody) << folder;
        EXPECT_EQ(status.st_mode & 07777U, 0700U) << folder;
    }
    struct statvfs volume {};
    ASSERT_EQ(statvfs(mountPoint.c_str(), &volume), 0);
    EXPECT_NE(volume.f_flag & ST_NOSUID, 0U);
    const auto device = deviceBelow(mountPoint);
    EXPECT_EQ(device.has_value(), disk.at("fileSystem") != "hfs+");
    if (!device) {
        EXPECT_EQ(volume.f_blocks * std::uint64_t{volume.f_frsize}, size);
    } else {
        EXPECT_EQ(volume.f_bsize, size < 64 * mebibyte ? 1024U : 4096U) << "blocks that suit its journal";
        EXPECT_EQ(labelOf(mountPoint), disk.at("isEncrypted") ? "" : "Scratch");
        EXPECT_LT(volume.f_bavail * volume.f_frsize, size) << "the rest is a restore's";
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
    const int expected = access == "onlyMe" ? EACCES : 0;
    EXPECT_EQ(errorOfOpening(mountPoint, O_RDONLY | O_DIRECTORY), expected);
    EXPECT_EQ(errorOfOpening(mountPoint / "a/b/file", O_RDONLY), expected);
    EXPECT_EQ(errorOfOpening(mountPoint / "a/b/file", O_WRONLY), EACCES);
}

TEST(DiskFormats, OfEveryFormatAreWhatWasAskedFor) {
    SKIP_UNLESS_ROOT();
    TestMachine machine;
    machine.environment = {{"SUDO_UID", "65534"}, {"SUDO_GID", "65534"}};
    ASSERT_EQ(chown((machine.folder() / "home").c_str(), nobody, nobody), 0);
    for (const auto& format : {Format{"hfs+", 4}, Format{"jhfs+", 16}, Format{"apfs", 8}, Format{"apfsx", 8},
                               Format{"apfs", 8, true}, Format{"apfsx", 8, true}}) {
        for (const auto size : {format.minimum * mebibyte, 1024 * mebibyte}) {
            for (const std::string access : {"everyone", "onlyMe"}) {
                SCOPED_TRACE(fmt::format("{} {} {} {}", format.name, size, access, format.isEncrypted));
                std::vector<std::string> options{"--format", format.name,
                                                 "--access", access,
                                                 "--size",   fmt::format("{}M", size / mebibyte)};
                if (format.isEncrypted) {
                    options.emplace_back("--encrypt");
                }
                const auto disk = machine.create("Scratch", options);
                ASSERT_TRUE(disk.is_object());
                EXPECT_EQ(disk.at("isEncrypted"), format.isEncrypted);
                EXPECT_EQ(machine.list().at("Scratch"), disk);
                expectWhole(disk, size, access);
                EXPECT_EQ(machine.run({"configure", "Scratch", "--folder", "New/Deep"}).status, 0);
                for (const char* const made : {"New", "New/Deep"}) {
                    EXPECT_EQ(ownerOf(mountPointOf(disk) / made), nobody) << made;
                }
                EXPECT_EQ(machine.run({"eject", "Scratch"}).status, 0);
                EXPECT_THAT(machine.traces(), IsEmpty());
            }
        }
    }
}

TEST(DiskFormats, ThatThisMachineCannotMakeAreRefusedBeforeAnythingIsAllocated) {
    SKIP_UNLESS_ROOT();
    const TestMachine machine;
    for (const std::string format : {"hfs+", "jhfs+", "exfat", "fat32"}) {
        for (const std::string dryRun : {"--json", "--dry-run"}) {
            const auto outcome =
                machine.run({"create", "--size", "64M", "--format", format, "--encrypt", dryRun});
            EXPECT_EQ(outcome.status, 1);
            EXPECT_THAT(outcome.err, HasSubstr(" can’t be encrypted. Choose APFS or turn encryption off.\n"));
        }
    }
    for (const auto& [format, type, name] :
         {std::tuple{"exfat", "exfat", "ExFAT"}, std::tuple{"fat32", "vfat", "MS-DOS (FAT32)"}}) {
        if (readFile("/proc/filesystems").find(fmt::format("\t{}\n", type)) == std::string::npos) {
            const auto outcome =
                machine.run({"create", "--size", "64M", "--format", format, "--name", "STICK"});
            EXPECT_EQ(outcome.status, 1);
            EXPECT_EQ(outcome.err,
                      fmt::format("tramdisk: Could not format the RAM disk: this kernel has no {} "
                                  "file system, which {} needs.\n",
                                  type, name));
        }
    }
    EXPECT_THAT(machine.traces(), IsEmpty());
    EXPECT_FALSE(fs::exists(machine.records()) && !fs::is_empty(machine.records()));
}

TEST(DiskFormats, OfAFolderThatRootMakesForAUserAreThatUsers) {
    SKIP_UNLESS_ROOT();
    TestMachine machine;
    machine.environment = {{"SUDO_UID", "65534"}, {"SUDO_GID", "65534"}, {"TRAMDISK_HOST", "folder"}};
    for (const std::string access : {"everyone", "onlyMe"}) {
        const auto root = mountPointOf(machine.create("Scratch", {"--access", access, "--folder", "New"}));
        EXPECT_EQ(ownerOf(root / "New"), nobody);
        EXPECT_EQ(inChild(nobody, [&] { return open((root / "file").c_str(), O_CREAT, 0600) < 0 ? 1 : 0; }),
                  0)
            << access;
        EXPECT_EQ(ownerOf(root.parent_path()), 0U) << "nothing can be put in its place";
        EXPECT_EQ(errorOfOpening(root, O_RDONLY | O_DIRECTORY), access == "onlyMe" ? EACCES : 0);
        EXPECT_EQ(machine.run({"eject", "Scratch"}).status, 0);
        EXPECT_THAT(machine.traces(), IsEmpty());
    }
}

TEST(DiskFormats, GiveTheMemoryOfDeletedFilesBackWhenTrimmed) {
    SKIP_UNLESS_ROOT();
    const TestMachine machine;
    const auto mountPoint = mountPointOf(machine.create("Filled", {"--size", "512M", "--format", "jhfs+"}));
    const auto sharedMemory = [] {
        // The memory file has no name, so only the sum of all such memory tells of it, in mebibytes.
        const auto text = readFile("/proc/meminfo");
        return std::stoul(text.substr(text.find("Shmem:") + 6)) / 1024;
    };
    const auto empty = sharedMemory();
    writeFile(mountPoint / "big", std::string(480 * mebibyte, 'x'));
    FileDescriptor root(open(mountPoint.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    ASSERT_EQ(syncfs(root.get()), 0);
    const auto full = sharedMemory();
    fs::remove(mountPoint / "big");
    syncfs(root.get());
    root.reset();
    RamDisk disk{DeviceIdentifier::wholeDisk(0), "Filled", {}};
    disk.mountPoint = mountPoint;
    FreeSpaceTrimming trimming;
    trimming.trim(disk);
    EXPECT_GT(sharedMemory() + 16, full) << "a disk of somebody else’s is left alone";
    disk.isCreatedByRamDisk = true;
    trimming.trim(disk);
    const auto trimmed = sharedMemory();
    EXPECT_EQ(machine.run({"eject", "Filled"}).status, 0);
    if (full < empty + 400 || full > empty + 600 || sharedMemory() > empty + 16) {
        GTEST_SKIP() << "other programs use shared memory at the same time";
    }
    EXPECT_LT(trimmed, empty + 32);
}

TEST(WithoutRights, OneSentenceTellsWhatIsMissing) {
    SKIP_UNLESS_ROOT();
    TestMachine machine(nobody);
    for (const auto& [rung, format, text] :
         {std::tuple{"kernel", "hfs+", "could not mount a tmpfs: Operation not permitted"},
          std::tuple{"folder", "apfs",
                     "APFS volumes need the right to mount, which this user does not have."}}) {
        machine.environment["TRAMDISK_HOST"] = rung;
        const auto outcome = machine.run({"create", "--size", "8M", "--format", format});
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(outcome.err, fmt::format("tramdisk: Could not format the RAM disk: {}\n", text));
        EXPECT_THAT(machine.traces(), IsEmpty());
        if (format == std::string("apfs")) {
            const auto told = machine.run({"validate", "--size", "1M", "--format", format, "--json"});
            EXPECT_EQ(told.status, 1);
            const auto issues = told.json().at("issues");
            ASSERT_EQ(issues.size(), 2U) << "the size and the format";
            EXPECT_EQ(issues[1].at("field"), "fileSystem");
            EXPECT_THAT(issues[1].at("text"), HasSubstr(text));
        }
    }
}

} // namespace
} // namespace ramdisk::test
