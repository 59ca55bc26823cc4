#include "tests/support/Linux/KillLoop.h"
#include "tests/tramdisk/Disks.h"

namespace ramdisk::test {
namespace {

class Renaming : public Disks {
protected:
    /// Has the mount folders lie below a mount that is shared with other namespaces.
    void shareMounts() const {
        fs::create_directories(machine->media());
        ASSERT_EQ(mount(machine->media().c_str(), machine->media().c_str(), nullptr, MS_BIND, nullptr), 0);
        ASSERT_EQ(mount(nullptr, machine->media().c_str(), nullptr, MS_SHARED, nullptr), 0);
    }

    /// The folders that disks are in.
    [[nodiscard]] std::vector<std::string> folders() const {
        std::vector<std::string> names;
        const auto parent = kind.isMounted() ? machine->media() : fs::path("/dev/shm");
        for (const auto& entry : fs::recursive_directory_iterator(parent)) {
            const auto depth = entry.path().lexically_relative(parent).string();
            if (entry.is_directory()
                && std::count(depth.begin(), depth.end(), '/') == (kind.isMounted() ? 0 : 1)) {
                names.push_back(entry.path().filename());
            }
        }
        return names;
    }

    /// How many mounts there are in mount folders.
    [[nodiscard]] std::size_t mountCount() const {
        // The blanks of the path are written otherwise in the mount table.
        return mountsWith(machine->folder().filename().string().substr(13) + "/state/media/").size();
    }
};
INSTANTIATE_TEST_SUITE_P(Kinds, Renaming, testing::Values(tmpfsKind, loopKind, folderOfAUserKind),
                         Disks::nameOf);

class MountRenaming : public Renaming {};
INSTANTIATE_TEST_SUITE_P(Kinds, MountRenaming, testing::Values(tmpfsKind, loopKind), Disks::nameOf);

TEST_P(Renaming, ChangesTheNameTheFolderAndTheLabel) {
    const auto disk = create("Old");
    writeFile(mountPointOf(disk) / "file", "kept");
    const auto outcome = machine->run({"rename", "Old", "  New name of it  ", "--json"});
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    const auto renamed = outcome.json();
    EXPECT_EQ(renamed.at("name"), "New name of it");
    for (const char* key : {"attachment", "instance"}) {
        EXPECT_EQ(renamed.value(key, nlohmann::json()), disk.value(key, nlohmann::json()));
    }
    EXPECT_EQ(readFile(mountPointOf(renamed) / "file"), "kept");
    EXPECT_THAT(folders(), ElementsAre("New name of it"));
    if (kind.means == DiskKind::Means::loop) {
        EXPECT_EQ(labelOf(mountPointOf(renamed)), "New name of it");
    }
    EXPECT_EQ(machine->list(), (std::map<std::string, nlohmann::json>{{"New name of it", renamed}}));
    // Its own name in other letters is not taken.
    EXPECT_EQ(machine->run({"rename", "disk1", "NEW NAME OF IT"}).status, 0);
    EXPECT_THAT(folders(), ElementsAre("NEW NAME OF IT"));
    // Nor is it when the disk has a record of its own as a startup disk.
    ASSERT_EQ(machine->run({"startup", "add", "disk1"}).status, 0);
    EXPECT_EQ(machine->run({"rename", "disk1", "Néw name of it"}).err, "");
    EXPECT_EQ(machine->run({"configure", "disk1", "--name", "NEW NAME OF IT"}).err, "");
    EXPECT_EQ(machine->run({"startup", "list", "--json"}).json()[0].at("name"), "NEW NAME OF IT");

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
    expectNoTraces();
}

TEST_P(MountRenaming, MovesADiskInUseUnlessItsMountIsShared) {
    for (const bool isShared : {false, true}) {
        if (isShared) {
            shareMounts();
        }
        const auto former = create("Busy");
        auto file = openFile(former);
        const auto outcome = machine->run({"rename", "Busy", "Calm"});
        EXPECT_EQ(outcome.status, 0) << outcome.err;
        EXPECT_EQ(mountPointOf(machine->list().at("Calm")), machine->media() / (isShared ? "Busy" : "Calm"));
        EXPECT_EQ(outcome.err, isShared
                                   ? fmt::format("tramdisk: note: “Calm” is in use, so it stays at {} until "
                                                 "it is ejected.\n",
                                                 mountPointOf(former).string())
                                   : "");
        EXPECT_THAT(folders(), ElementsAre(isShared ? "Busy" : "Calm"));
        EXPECT_EQ(pwrite(file.get(), "x", 1, 0), 1);
        file.reset();
        // Now nobody stands in it.
        EXPECT_EQ(machine->run({"rename", "Calm", "Free"}).err, "");
        EXPECT_THAT(folders(), ElementsAre("Free"));
        eject("Free");
        EXPECT_THAT(folders(), IsEmpty());
    }
    umount2(machine->media().c_str(), 0);
    expectNoTraces();
}

TEST_P(Renaming, KilledAtAnyCallLeavesOneWholeDiskInOneFolder) {
    struct Row {
        bool isShared;
        bool isInUse;
    };
    for (const auto& row : {Row{false, false}, Row{true, false}, Row{true, true}}) {
        SCOPED_TRACE(fmt::format("{} {}", row.isShared, row.isInUse));
        if (row.isShared && !kind.isMounted()) {
            break;
        }
        if (row.isShared && !row.isInUse) {
            shareMounts();
        }
        fs::path former;
        FileDescriptor file;
        killAtEveryCall({[&] {
                             const auto disk = create("Before");
                             former = mountPointOf(disk);
                             writeFile(former / "file", "kept");
                             file = row.isInUse ? openFile(disk) : FileDescriptor();
                         },
                         [&] {
                             machine->become({"rename", "Before", "After"});
                         },
                         [&](std::optional<int> status) {
                             EXPECT_EQ(status.value_or(0), 0);
                             const auto disks = machine->list();
                             ASSERT_EQ(disks.size(), 1U);
                             const auto& [name, disk] = *disks.begin();
                             EXPECT_TRUE(!status || name == "After");
                             const auto folder = mountPointOf(disk);
                             EXPECT_TRUE(!row.isInUse || folder == former);
                             EXPECT_EQ(readFile(folder / "file"), "kept");
                             EXPECT_THAT(folders(), ElementsAre(folder.filename()));
                             EXPECT_EQ(mountCount(), kind.isMounted() ? 1U : 0U);
                             file.reset();
                             eject(name);
                             ASSERT_THAT(folders(), IsEmpty());
                         }});
    }
    umount2(machine->media().c_str(), 0);
    expectNoTraces();
}

TEST_P(Renaming, LeavesTheIndexingThatConfigureSwitches) {
    const auto mountPoint = mountPointOf(create("Disk"));
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
    eject("Disk");
}

TEST_P(MountRenaming, AnAccessThatCannotBeChangedLeavesTheRedirectsInPlace) {
    auto arguments = creation("Work");
    arguments.insert(arguments.end(), {"--redirect", "cache:pip"});
    ASSERT_EQ(machine->run(arguments).status, 0);
    const auto link = machine->folder() / "home/.cache/pip";
    writeFile(link / "wheel", "cached");
    std::filesystem::create_directories(machine->privateMounts().parent_path());
    writeFile(machine->privateMounts(), "in the way");
    const auto refused = machine->run({"configure", "Work", "--access", "onlyMe"});
    EXPECT_EQ(refused.status, 1) << refused.err;
    EXPECT_EQ(readFile(link / "wheel"), "cached");
    eject("Work");
}

} // namespace
} // namespace ramdisk::test
