#include "tests/support/Linux/KillLoop.h"
#include "tests/tramdisk/Disks.h"

#include <sys/prctl.h>

namespace ramdisk::test {
namespace {

/// A process of a user, who alone may look into it, with a file of a mebibyte open.
class FileHolder {
public:
    FileHolder(uid_t user, const fs::path& file) {
        EXPECT_EQ(pipe2(orders_.data(), O_CLOEXEC) + pipe2(answers_.data(), O_CLOEXEC), 0);
        pid_ = fork();
        if (pid_ == 0) {
            hold(user, file);
        }
        EXPECT_TRUE(isAnswered()) << "the file could not be made";
    }
    FileHolder(const FileHolder&) = delete;
    FileHolder& operator=(const FileHolder&) = delete;
    ~FileHolder() { end(); }

    /// Whether it can still write to its file.
    [[nodiscard]] bool canWrite() const { return ::write(orders_[1], "w", 1) == 1 && isAnswered(); }
    void end() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitFor(std::exchange(pid_, 0));
            for (const int end : {orders_[0], orders_[1], answers_[0], answers_[1]}) {
                close(end);
            }
        }
    }
    [[nodiscard]] std::string described() const { return fmt::format("a\uFFFDb ({})", pid_); }

private:
    [[nodiscard]] bool isAnswered() const {
        char answer = 'n';
        return ::read(answers_[0], &answer, 1) == 1 && answer == 'y';
    }
    [[noreturn]] void hold(uid_t user, const fs::path& file) const {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (user != 0 && (setgid(user) != 0 || setuid(user) != 0)) {
            _exit(1);
        }
        prctl(PR_SET_DUMPABLE, 1);
        prctl(PR_SET_NAME, "a\nb");
        const int held = open(file.c_str(), O_CREAT | O_RDWR, 0600);
        bool isFine = posix_fallocate(held, 0, mebibyte) == 0;
        for (char order = 0;
             ::write(answers_[1], isFine ? "y" : "n", 1) == 1 && ::read(orders_[0], &order, 1) == 1;) {
            isFine = pwrite(held, "x", 1, 0) == 1;
        }
        _exit(0);
    }

    pid_t pid_ = 0;
    std::array<int, 2> orders_{};
    std::array<int, 2> answers_{};
};

INSTANTIATE_TEST_SUITE_P(Kinds, Disks, testing::Values(tmpfsKind, loopKind, folderKind, folderOfAUserKind),
                         Disks::nameOf);

class MountedDisks : public Disks {};
INSTANTIATE_TEST_SUITE_P(Kinds, MountedDisks, testing::Values(tmpfsKind, loopKind), Disks::nameOf);

class TmpfsDisks : public Disks {};
INSTANTIATE_TEST_SUITE_P(Kinds, TmpfsDisks, testing::Values(tmpfsKind), Disks::nameOf);

TEST_P(Disks, LiveFromCreateToEjectAndAreRemovedWithoutFollowingAnyLink) {
    if (kind.user != 0) {
        machine->environment.erase("TRAMDISK_HOST");
    }
    const auto other = create("Other");
    const std::string name = "Zoë's \n \xff";
    const std::string folderName = "Zoë's _ \xff";
    auto arguments = creation(name);
    arguments.insert(arguments.end(), {"--json", "--access", "onlyMe"});
    const auto outcome = machine->run(arguments);
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    const auto disk = outcome.json().at("ramDisk");
    EXPECT_EQ(disk.at("name"), "Zoë's \n \uFFFD");
    if (!kind.isMounted()) {
        EXPECT_EQ(outcome.err, "tramdisk: note: This user may not mount, so the disk is a folder on "
                               "/dev/shm; its size is not enforced.\n");
        EXPECT_EQ(disk.at("fileSystemName"), "folder on /dev/shm (size not enforced)");
    }
    const auto uuid = nlohmann::json::parse(readFile(machine->records() / "disk2.json")).at("uuid");
    const auto folder = (kind.isMounted() ? machine->privateMounts()
                                          : fs::path("/dev/shm") / ("ramdisk-" + uuid.get<std::string>()))
                        / folderName;
    struct stat status {};
    ASSERT_EQ(stat(folder.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0700U);
    EXPECT_EQ(status.st_uid, kind.user);
    EXPECT_TRUE(fs::exists(folder / ".nomedia"));
    EXPECT_EQ(machine->list().at(disk.at("name")), disk);

    const auto outside = machine->folder() / "home/outside";
    EXPECT_EQ(inChild(kind.user,
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
    eject(folder.parent_path() / "." / folderName / "");
    EXPECT_EQ(readFile(outside / "file"), "survives");
    EXPECT_FALSE(fs::exists(folder));
    EXPECT_EQ(machine->list(), (std::map<std::string, nlohmann::json>{{"Other", other}}));
    EXPECT_EQ(machine->run({"-q", "eject", "disk1"}).out, "");
    expectNoTraces();
}

TEST_P(Disks, InUseStayUnlessForcedAndTellTheMemoryStillHeld) {
    const auto disk = create("Busy");
    const auto file = mountPointOf(disk) / "file";
    EXPECT_EQ(chmod(mountPointOf(disk).c_str(), 0777), 0);
    FileHolder holder(kind.user, file);

    EXPECT_THAT(machine->run({"users", "Busy"}).out, testing::ContainsRegex("[0-9]+ +a[^ \n]+b\n"));
    const auto refused = machine->run({"eject", "Busy"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.err,
              fmt::format("tramdisk: The disk is in use: “{}” is kept busy by {}.\nClose files and "
                          "apps using the disk, or force the eject.\n",
                          mountPointOf(disk).string(), holder.described()));
    EXPECT_EQ(refused.out, "");
    EXPECT_TRUE(fs::exists(file));
    EXPECT_EQ(machine->list().at("Busy").at("attachment"), disk.at("attachment"));
    EXPECT_TRUE(holder.canWrite());

    const auto forced = machine->run({"eject", "--force", "Busy"});
    EXPECT_EQ(forced.status, 0);
    const bool isLoop = kind.means == DiskKind::Means::loop;
    EXPECT_THAT(forced.err, HasSubstr((isLoop ? "" : "“Busy” is ejected, but 1 MB ")
                                      + ("of its memory stays in use until its last file is closed: "
                                         + holder.described() + ".\n")));
    EXPECT_EQ(holder.canWrite(), !isLoop) << "nobody may go on writing to a device that is thrown away";
    EXPECT_FALSE(fs::exists(file));
    const auto detaching = machine->list().at("Busy");
    EXPECT_FALSE(detaching.contains("mountPoint"));
    const auto held = detaching.at("memoryFootprint").at("bytes").get<std::uint64_t>();
    EXPECT_TRUE(isLoop ? held >= mebibyte : held == mebibyte) << held;
    EXPECT_EQ(machine->run({"users", "Busy"}).err, "tramdisk: disk1 is not mounted.\n");
    EXPECT_EQ(machine->run({"eject", "Busy"}).status, 1);

    // The name is not that of a mounted volume any more, and what is left of the old disk harms no new one.
    const auto again = create("Busy");
    EXPECT_EQ(mountPointOf(again) == mountPointOf(disk), kind.isMounted());
    holder.end();
    EXPECT_EQ(machine->list(), (std::map<std::string, nlohmann::json>{{"Busy", again}}));
    eject("Busy");
    expectNoTraces();
}

TEST_P(Disks, AreEjectedByOneOfTwoAtOnce) {
    for (int round = 0; round < 5; ++round) {
        const auto device = create("Wanted").at("device").at("bsdName").get<std::string>();
        const std::string reference = round % 2 == 0 ? device : "Wanted";
        std::array<Outcome, 2> outcomes;
        std::thread other([&] { outcomes[1] = machine->run({"eject", reference}); });
        outcomes[0] = machine->run({"eject", reference});
        other.join();
        EXPECT_EQ(outcomes[0].status + outcomes[1].status, 1);
        EXPECT_EQ(outcomes[outcomes[0].status == 0 ? 1 : 0].err,
                  fmt::format("tramdisk: No RAM disk matches “{}”.\n", reference));
        expectNoTraces();
    }
}

TEST_P(Disks, KilledAtAnyCallAreGoneOrWhole) {
    for (const bool isEject : {false, true}) {
        SCOPED_TRACE(isEject ? "eject" : "create");
        killAtEveryCall(
            {[&] {
                 if (isEject) {
                     const auto folder = mountPointOf(create("Victim"));
                     for (int index = 0; index < 20; ++index) {
                         writeFile(folder / std::to_string(index), "x");
                     }
                 }
             },
             [&] {
                 machine->become(isEject ? std::vector<std::string>{"eject", "Victim"} : creation("Victim"));
             },
             [&](std::optional<int> status) {
                 EXPECT_EQ(status.value_or(0), 0);
                 const auto left = machine->list();
                 EXPECT_TRUE(!status || left.empty() == isEject);
                 if (!left.empty()) {
                     const auto files =
                         std::distance(fs::directory_iterator(mountPointOf(left.at("Victim"))), {});
                     EXPECT_EQ(files, isEject ? 22 : 2);
                     eject("Victim");
                 }
                 ASSERT_THAT(machine->traces(), IsEmpty());
             }});
    }
}

TEST_P(MountedDisks, UnmountedByOtherMeansFreeTheirNameAtOnce) {
    const auto mountPoint = mountPointOf(create("Scratch"));
    ASSERT_EQ(umount2(mountPoint.c_str(), 0), 0);
    const auto again = create("Scratch");
    EXPECT_EQ(mountPointOf(again), mountPoint);
    FileHolder holder(0, mountPoint / "file");
    ASSERT_EQ(umount2(mountPoint.c_str(), MNT_DETACH), 0);
    if (kind.means == DiskKind::Means::loop) {
        // Its device tells of it as long as somebody has a file open.
        const auto detaching = machine->list().at("Scratch");
        EXPECT_FALSE(detaching.contains("mountPoint"));
        EXPECT_GE(detaching.at("memoryFootprint").at("bytes"), mebibyte);
        EXPECT_THAT(machine->run({"eject", "--force", "Scratch"}).err, HasSubstr(holder.described()));
    }
    holder.end();
    EXPECT_THAT(machine->list(), IsEmpty());
    expectNoTraces();

    ASSERT_EQ(mountPointOf(create("Scratch")), mountPoint);
    ASSERT_EQ(umount2(mountPoint.c_str(), 0), 0);
    // Now somebody else's folder stands there.
    ASSERT_TRUE(fs::remove(mountPoint) && fs::create_directory(mountPoint));
    EXPECT_THAT(machine->list(), IsEmpty());
    EXPECT_THAT(machine->traces(), ElementsAre(mountPoint));
}

TEST_P(MountedDisks, WithASecondMountOrAnotherMountOnTop) {
    const auto mountPoint = mountPointOf(create("Twice"));
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

    const auto covered = mountPointOf(create("Covered"));
    // Made before the disk was, and moved on top of it.
    ASSERT_EQ(mount("theirs", second.c_str(), "tmpfs", 0, nullptr), 0);
    const auto younger = mountPointOf(create("Younger"));
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
    expectNoTraces();
}

TEST_P(TmpfsDisks, MadeAtOnceByFourProcessesNeverShareAnything) {
    constexpr unsigned each = 25;
    std::vector<pid_t> makers(4);
    for (auto& maker : makers) {
        maker = fork();
        if (maker == 0) {
            int failures = 0;
            for (unsigned index = 0; index < each; ++index) {
                failures += machine->run({"create", "--size", "4M"}).status == 0 ? 0 : 1;
            }
            _exit(failures);
        }
    }
    for (const pid_t maker : makers) {
        EXPECT_EQ(waitFor(maker), 0);
    }
    std::set<std::string> devices;
    std::set<fs::path> mountPoints;
    const auto disks = machine->list();
    for (const auto& [name, disk] : disks) {
        devices.insert(disk.at("device").dump());
        mountPoints.insert(mountPointOf(disk));
    }
    EXPECT_EQ(disks.size(), 4 * each);
    EXPECT_EQ(devices.size(), 4 * each);
    EXPECT_EQ(mountPoints.size(), 4 * each);
    EXPECT_EQ(mountsWith(" ramdisk-").size(), 4 * each);

    for (auto& maker : makers) {
        maker = machine->start({"create", "--size", "4M", "--name", "Wanted"});
    }
    EXPECT_EQ(std::count_if(makers.begin(), makers.end(), [](pid_t maker) { return waitFor(maker) == 0; }),
              1);
    EXPECT_EQ(machine->run({"eject", "--all"}).status, 0);
    expectNoTraces();
}

TEST_P(TmpfsDisks, EjectedAllAtOnceGoOnAfterAFailureAndAreOnlyOnesOwn) {
    create("First");
    const auto busy = create("Second");
    create("Third");
    machine->environment = {{"SUDO_UID", "65534"}, {"SUDO_GID", "65534"}};
    const auto others = create("Another user's");
    machine->environment.clear();
    EXPECT_EQ(inChild(nobody, [&] { return openFile(others) ? 0 : 1; }), 0)
        << "it is the sudo user's to write to";
    auto file = openFile(busy);
    const auto outcome = machine->run({"eject", "--all", "--json"});
    EXPECT_EQ(outcome.status, 1);
    const auto json = outcome.json();
    ASSERT_EQ(json.at("ejected").size(), 2U);
    EXPECT_EQ(json.at("ejected")[1].at("name"), "Third");
    ASSERT_EQ(json.at("failures").size(), 1U);
    EXPECT_EQ(json.at("failures")[0].at("ramDisk").at("name"), "Second");
    EXPECT_EQ(machine->list().size(), 2U);
    file.reset();
    EXPECT_EQ(machine->run({"eject", "Second", "Another user's"}).status, 0);
    EXPECT_EQ(machine->run({"eject", "--all"}).out, "No RAM disks to eject.\n");
    expectNoTraces();
}

} // namespace
} // namespace ramdisk::test
