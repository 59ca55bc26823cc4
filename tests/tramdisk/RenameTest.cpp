#include "tests/support/Linux/TestMachine.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <array>
#include <csignal>
#include <thread>

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <unistd.h>

namespace ramdisk::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace fs = std::filesystem;

class Renaming : public testing::TestWithParam<const char*> {
protected:
    void SetUp() override {
        SKIP_UNLESS_ROOT();
        machine.emplace();
    }

    nlohmann::json create(const std::string& name) const {
        const auto outcome =
            machine->run({"create", "--json", "--size", "16M", "--format", GetParam(), "--name", name});
        EXPECT_EQ(outcome.status, 0) << outcome.err;
        return outcome.json().at("ramDisk");
    }

    /// Has the mount folders lie below a mount that is shared with other namespaces.
    void shareMounts() const {
        fs::create_directories(machine->media());
        ASSERT_EQ(mount(machine->media().c_str(), machine->media().c_str(), nullptr, MS_BIND, nullptr), 0);
        ASSERT_EQ(mount(nullptr, machine->media().c_str(), nullptr, MS_SHARED, nullptr), 0);
    }

    [[nodiscard]] std::vector<std::string> folders() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(machine->media())) {
            names.push_back(entry.path().filename());
        }
        return names;
    }

    /// How many mounts there are in mount folders.
    [[nodiscard]] std::size_t mountCount() const {
        // The blanks of the path are written otherwise in the mount table.
        return mountsWith(machine->folder().filename().string().substr(13) + "/state/media/").size();
    }

    std::optional<TestMachine> machine;
};
INSTANTIATE_TEST_SUITE_P(Formats, Renaming, testing::Values("hfs+", "jhfs+"),
                         [](const auto& row) { return row.param[0] == 'j' ? "Journaled" : "Tmpfs"; });

std::string labelOf(const fs::path& mountPoint) {
    std::array<char, FSLABEL_MAX> label{};
    const int root = open(mountPoint.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ioctl(root, FS_IOC_GETFSLABEL, label.data());
    close(root);
    return label.data();
}

TEST_P(Renaming, ChangesTheNameTheFolderAndTheLabel) {
    const auto disk = create("Old");
    const fs::path former = disk.at("mountPoint");
    writeFile(former / "file", "kept");
    const auto outcome = machine->run({"rename", "Old", "  New name of it  ", "--json"});
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    const auto renamed = outcome.json();
    const fs::path folder = renamed.at("mountPoint");
    EXPECT_EQ(renamed.at("name"), "New name of it");
    EXPECT_EQ(folder, machine->media() / "New name of it");
    EXPECT_EQ(renamed.at("attachment"), disk.at("attachment"));
    EXPECT_EQ(renamed.at("instance"), disk.at("instance"));
    EXPECT_EQ(readFile(folder / "file"), "kept");
    EXPECT_THAT(folders(), ElementsAre("New name of it"));
    if (GetParam() == std::string("jhfs+")) {
        EXPECT_EQ(labelOf(folder), "New name of it");
    }
    EXPECT_EQ(machine->list(), (std::map<std::string, nlohmann::json>{{"New name of it", renamed}}));
    // Its own name in other letters is not taken.
    EXPECT_EQ(machine->run({"rename", "disk1", "NEW NAME OF IT"}).status, 0);
    EXPECT_THAT(folders(), ElementsAre("NEW NAME OF IT"));

    const auto before = machine->list();
    create("Other");
    for (const auto& [name, text] :
         std::map<std::string, std::string>{{"other", "A volume named “other” is already mounted."},
                                            {"a/b", "The name must not contain “/”."},
                                            {"", "Enter a name for the RAM disk."},
                                            {"  ", "Enter a name for the RAM disk."},
                                            {".hidden", "The name must not start with a dot."}}) {
        const auto refused = machine->run({"rename", "disk1", "--", name});
        EXPECT_EQ(refused.status, 1) << name;
        EXPECT_EQ(refused.err, "tramdisk: " + text + "\n");
        EXPECT_EQ(machine->list().at("NEW NAME OF IT"), before.at("NEW NAME OF IT")) << name;
        EXPECT_EQ(folders().size(), 2U) << name;
    }
    EXPECT_EQ(machine->run({"eject", "--all"}).status, 0);
    EXPECT_THAT(machine->traces(), IsEmpty());
}

TEST_P(Renaming, MovesADiskInUseUnlessItsMountIsShared) {
    for (const bool isShared : {false, true}) {
        if (isShared) {
            shareMounts();
        }
        const fs::path former = create("Busy").at("mountPoint");
        const int file = open((former / "open").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
        const auto outcome = machine->run({"rename", "Busy", "Calm"});
        EXPECT_EQ(outcome.status, 0) << outcome.err;
        const auto disk = machine->list().at("Calm");
        EXPECT_EQ(fs::path(disk.at("mountPoint")), machine->media() / (isShared ? "Busy" : "Calm"));
        EXPECT_EQ(outcome.err, isShared
                                   ? fmt::format("tramdisk: note: “Calm” is in use, so it stays at {} until "
                                                 "it is ejected.\n",
                                                 former.string())
                                   : "");
        EXPECT_THAT(folders(), ElementsAre(isShared ? "Busy" : "Calm"));
        EXPECT_EQ(pwrite(file, "x", 1, 0), 1);
        close(file);
        // Now nobody stands in it.
        EXPECT_EQ(machine->run({"rename", "Calm", "Free"}).err, "");
        EXPECT_THAT(folders(), ElementsAre("Free"));
        EXPECT_EQ(machine->run({"eject", "Free"}).status, 0);
        EXPECT_THAT(folders(), IsEmpty());
    }
    umount2(machine->media().c_str(), 0);
    EXPECT_THAT(machine->traces(), IsEmpty());
}

TEST_P(Renaming, KilledAtAnyTimeLeavesOneWholeDiskInOneFolder) {
    for (int round = 0; round < 60; ++round) {
        if (round == 30) {
            shareMounts();
        }
        writeFile(fs::path(create("Before").at("mountPoint")) / "file", "kept");
        const pid_t child = machine->start({"rename", "Before", "After"});
        std::this_thread::sleep_for(std::chrono::microseconds(2000 + 200 * (round % 30)));
        kill(child, SIGKILL);
        waitFor(child);
        const auto disks = machine->list();
        ASSERT_EQ(disks.size(), 1U) << round;
        const auto& [name, disk] = *disks.begin();
        const fs::path folder = disk.at("mountPoint");
        EXPECT_EQ(readFile(folder / "file"), "kept") << round;
        EXPECT_THAT(folders(), ElementsAre(folder.filename())) << round;
        EXPECT_EQ(mountCount(), 1U) << round;
        EXPECT_EQ(machine->run({"eject", name}).status, 0) << round;
        ASSERT_THAT(folders(), IsEmpty()) << round;
    }
    umount2(machine->media().c_str(), 0);
    EXPECT_THAT(machine->traces(), IsEmpty());
}

TEST_P(Renaming, HealsAVolumeThatWasInBothPlaces) {
    shareMounts();
    for (const bool isInUse : {false, true}) {
        const fs::path former = create("Before").at("mountPoint");
        const auto target = machine->media() / "After";
        // As a process leaves it that is killed between the second mount and the end of the first.
        fs::create_directory(target);
        ASSERT_EQ(mount(former.c_str(), target.c_str(), nullptr, MS_BIND, nullptr), 0);
        auto record = nlohmann::json::parse(readFile(machine->records() / "disk1.json"));
        record["name"] = "After";
        record["mountPoint"] = target.string();
        record["formerMountPoint"] = former.string();
        writeFile(machine->records() / "disk1.json", record.dump());
        const int file = isInUse ? open((former / "open").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644) : -1;
        const auto disk = machine->list().at("After");
        EXPECT_EQ(fs::path(disk.at("mountPoint")), isInUse ? former : target);
        EXPECT_EQ(mountCount(), 1U);
        close(file);
        EXPECT_EQ(machine->run({"eject", "After"}).status, 0);
        fs::remove(target); // Made by this test, so it carries no mark.
        EXPECT_THAT(folders(), IsEmpty());
    }
    umount2(machine->media().c_str(), 0);
}

TEST_P(Renaming, LeavesTheIndexingThatConfigureSwitches) {
    const fs::path mountPoint = create("Disk").at("mountPoint");
    EXPECT_THAT(machine->run({"show", "Disk"}).out, testing::ContainsRegex("Indexing +off\n"));
    for (const bool isOn : {true, false}) {
        EXPECT_EQ(machine->run({"configure", "Disk", isOn ? "--indexing" : "--no-indexing"}).status, 0);
        EXPECT_EQ(fs::exists(mountPoint / ".nomedia"), !isOn);
        EXPECT_EQ(fs::exists(mountPoint / ".trackerignore"), !isOn);
        EXPECT_THAT(machine->run({"show", "Disk"}).out,
                    testing::ContainsRegex(isOn ? "Indexing +on\n" : "Indexing +off\n"));
    }
    fs::remove(mountPoint / ".nomedia");
    EXPECT_THAT(machine->run({"show", "Disk"}).out, Not(HasSubstr("Indexing"))) << "half a state is none";
    EXPECT_EQ(machine->run({"eject", "Disk"}).status, 0);
}

} // namespace
} // namespace ramdisk::test
