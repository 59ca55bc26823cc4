#include "RamDiskInfrastructure/Linux/Host/SmallFile.h"
#include "RamDiskInfrastructure/Trees/TreeManifest.h"
#include "tests/support/Linux/FullDisk.h"
#include "tests/support/Linux/TestMount.h"
#include "tests/tramdisk/KeptDisks.h"

#include <sys/statvfs.h>

namespace ramdisk::test {
namespace {

class KeptFiles : public KeptDisks {
protected:
    /// The latest copy of the only startup disk.
    [[nodiscard]] fs::path latest() const {
        for (const auto& entry : fs::directory_iterator(savedContents())) {
            if (entry.path().extension() == ".sparseimage" && entry.path().stem().string().size() == 36) {
                return entry.path();
            }
        }
        return {};
    }
    /// Writes something else in the place of `text`, wherever it lies in the file.
    static void damage(const fs::path& file, const std::string& text) {
        const auto place = readFile(file).find(text);
        ASSERT_NE(place, std::string::npos);
        const FileDescriptor open(::open(file.c_str(), O_WRONLY | O_CLOEXEC));
        ASSERT_EQ(pwrite(open.get(), "#", 1, static_cast<off_t>(place)), 1);
    }
};

TEST_F(KeptFiles, OfADiskWhoseRecordIsDamagedAreStillSaved) {
    const auto record = machine->records() / "disk1.json";
    for (const char* format : {"hfs+", "jhfs+"}) {
        const auto root = makeKept("Work", {"--format", format, "--access", "onlyMe"});
        const auto before = machine->list().at("Work");
        const auto intact = readFile(record);
        for (const auto& remains : {std::string(), std::string("x"), intact.substr(0, intact.size() / 2)}) {
            writeFile(record, remains);
            const auto told = machine->run({"list"});
            EXPECT_THAT(told.err, HasSubstr("The record of “Work” (disk1) was damaged"));
            EXPECT_EQ(machine->run({"list"}).err, "");
            auto after = machine->list().at("Work");
            after["fileSystem"] = before.at("fileSystem");
            after["attachment"] = before.at("attachment");
            EXPECT_EQ(after, before) << format;
        }
        writeFile(root / "file", "precious");
        writeFile(record, "");
        EXPECT_EQ(machine->run({"save", "Work"}).status, 0);
        EXPECT_EQ(machine->run({"eject", "Work"}).status, 0);
        EXPECT_EQ(machine->run({"startup", "create", "Work"}).status, 0);
        EXPECT_EQ(readFile(root / "file"), "precious");
        EXPECT_EQ(machine->run({"eject", "Work"}).status, 0);
        EXPECT_EQ(machine->run({"startup", "remove", "Work", "--force"}).status, 0);
    }
    writeFile(record, "x");
    EXPECT_THAT(machine->run({"list"}).err, HasSubstr("so nothing of it can be saved."));
}

TEST_F(KeptFiles, ADamagedCopyCostsNoDiskAndIsNotSavedOver) {
    const auto root = makeKept("Work");
    ASSERT_EQ(machine->run({"configure", "Work", "--copies", "1"}).status, 0);
    writeFile(root / "same", std::string(5000, 's') + "the same in both");
    writeFile(root / "file", "old version");
    ASSERT_EQ(machine->run({"save", "Work"}).status, 0);
    writeFile(root / "file", "new version");
    writeFile(root / "other", "intact");
    ASSERT_EQ(machine->run({"eject", "Work"}).status, 0);
    damage(latest(), "new version");
    damage(latest(), "the same in both");

    const auto expectUnsaved = [&] {
        EXPECT_EQ(readFile(root / "other"), "intact");
        EXPECT_THAT(readFile(root / "same"), HasSubstr("the same in both"));
        EXPECT_THAT(machine->run({"save", "Work"}).err, HasSubstr("were not put back on it"));
        EXPECT_EQ(machine->run({"copies", "Work", "--json"}).json().size(), 2U);
    };
    const auto made = machine->run({"startup", "create", "Work"});
    EXPECT_EQ(made.status, 1);
    EXPECT_THAT(made.err,
                HasSubstr("the copy is damaged: “file” differs from what was saved, and no other "
                          "copy has it. All other files were put back. The damaged copy is kept as "));
    EXPECT_THAT(made.err, HasSubstr("`tramdisk save Work --keep-current`"));
    expectUnsaved();
    EXPECT_EQ(machine->run({"load", "Work"}).status, 1);
    expectUnsaved();
    ASSERT_EQ(machine->run({"eject", "Work", "--discard"}).status, 0);

    // A session tells it at once and at its end.
    startSession();
    expectUnsaved();
    EXPECT_EQ(machine->run({"load", "Work", "--copy", "2"}).status, 0);
    EXPECT_EQ(readFile(root / "file"), "old version");
    const auto ended = endSession();
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.err, HasSubstr("“file” differs from what was saved"));
    EXPECT_EQ(machine->run({"startup", "create", "Work"}).status, 0);
    EXPECT_EQ(readFile(root / "file"), "old version");

    // Or the user takes what is there.
    ASSERT_EQ(machine->run({"load", "Work", "--copy", "2"}).status, 1);
    EXPECT_EQ(machine->run({"save", "Work"}).status, 1) << "the disk held the saved files before";
    writeFile(root / "file", "mended");
    EXPECT_EQ(machine->run({"save", "Work", "--keep-current"}).status, 0);
    EXPECT_EQ(machine->run({"save", "Work"}).status, 0);
    int keptAside = 0;
    for (const auto& entry : fs::directory_iterator(savedContents())) {
        keptAside += entry.path().string().find(".damaged-") != std::string::npos ? 1 : 0;
    }
    EXPECT_EQ(keptAside, 1) << "of one image, however often it was tried";
}

TEST_F(KeptFiles, AnUnreadableCopyLeavesAnEmptyDiskOntoWhichAnotherCanBeLoaded) {
    const auto root = makeKept("Work");
    ASSERT_EQ(machine->run({"configure", "Work", "--copies", "1"}).status, 0);
    writeFile(root / "file", "old version");
    ASSERT_EQ(machine->run({"save", "Work"}).status, 0);
    writeFile(root / "file", "new version");
    ASSERT_EQ(machine->run({"eject", "Work"}).status, 0);
    writeFile(latest(), "no image at all");
    EXPECT_EQ(machine->run({"startup", "create", "Work"}).status, 1);
    EXPECT_EQ(machine->run({"save", "Work"}).status, 1);
    EXPECT_EQ(machine->run({"eject", "Work"}).status, 1);
    EXPECT_EQ(machine->run({"load", "Work", "--copy", "2"}).status, 0);
    EXPECT_EQ(readFile(root / "file"), "old version");
    EXPECT_EQ(machine->run({"save", "Work"}).status, 0);
}

TEST_F(KeptFiles, OfAFullDiskFitAgainAndOnlyADiskThatNeedsMoreRoomGetsIt) {
    struct Row {
        const char* format;
        const char* name;
        std::size_t size;
    };
    const Row rows[] = {{"jhfs+", "20 KB files", 20000},        {"jhfs+", "one large file", 1U << 30U},
                        {"jhfs+", "files of two blocks", 2000}, {"jhfs+", "empty files", 0},
                        {"jhfs+", "names of one file", 1},      {"hfs+", "20 KB files", 20000}};
    const auto totalOf = [](const fs::path& root) {
        struct statvfs volume {};
        EXPECT_EQ(statvfs(root.c_str(), &volume), 0);
        return volume.f_blocks * volume.f_frsize;
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.format) + ", " + row.name);
        const auto root = mountPointOf(machine->create("Full", {"--size", "16M", "--format", row.format}));
        EXPECT_LE(totalOf(root), 16 * mebibyte);
        ASSERT_EQ(machine->run({"startup", "add", "Full", "--keep-files"}).status, 0);
        fillUp(root / "tree", row.size);
        const auto difference = [&, tree = TreeManifest::scan(requireFolder(root / "tree"), {})] {
            return TreeManifest::scan(requireFolder(root / "tree"), {}).firstDifference(tree).value_or("");
        };
        ASSERT_EQ(machine->run({"save", "Full"}).status, 0);
        EXPECT_EQ(machine->run({"load", "Full"}).err, "");
        EXPECT_EQ(difference(), "");
        ASSERT_EQ(machine->run({"eject", "Full"}).status, 0);
        EXPECT_EQ(machine->run({"startup", "create", "Full"}).err, "");
        EXPECT_EQ(difference(), "");
        if (totalOf(root) > 16 * mebibyte) {
            // Nobody else gets that room.
            std::ofstream more(root / "more");
            more << std::string(2 * mebibyte, 'x') << std::flush;
            EXPECT_FALSE(more.good());
        }
        ASSERT_EQ(machine->run({"eject", "Full", "--discard"}).status, 0);
        ASSERT_EQ(machine->run({"startup", "remove", "Full", "--force"}).status, 0);
    }
}

TEST_F(KeptFiles, OfASeedThatDoesNotFitLeaveNoCutOffFile) {
    for (const char* format : {"jhfs+", "hfs+"}) {
        SCOPED_TRACE(format);
        const auto seed = machine->folder() / "seed";
        fs::create_directories(seed);
        writeFile(seed / "huge", std::string(20 * mebibyte, 'x'));
        writeFile(seed / "small", "small");
        const auto made = machine->run({"create", "--name", format, "--size", "16M", "--format", format,
                                        "--seed", seed.string(), "--at-launch", "--keep-files", "--json"});
        EXPECT_EQ(made.status, 1);
        EXPECT_THAT(made.err, HasSubstr("The initial contents could not be copied:"));
        const auto root = mountPointOf(made.json().at("ramDisk"));
        EXPECT_FALSE(fs::exists(root / "huge"));
        EXPECT_EQ(machine->run({"eject", format}).status, 0);
    }
}

TEST_F(KeptFiles, OfAnInterruptedRestoreOfAFullDiskAreAllPutBackByTheNext) {
    const auto root = mountPointOf(
        machine->create("Full", {"--size", "16M", "--format", "apfs", "--at-launch", "--keep-files"}));
    fillUp(root / "tree", 2000);
    const auto tree = TreeManifest::scan(requireFolder(root / "tree"), {});
    ASSERT_EQ(machine->run({"eject", "Full"}).status, 0);
    for (int pause = 40; pause <= 240; pause += 50) {
        SCOPED_TRACE(pause);
        const auto child = machine->start({"startup", "create", "Full"});
        std::this_thread::sleep_for(std::chrono::milliseconds(pause));
        kill(child, SIGKILL);
        waitFor(child);
        EXPECT_EQ(machine->run({"startup", "create", "Full"}).err, "");
        EXPECT_EQ(TreeManifest::scan(requireFolder(root / "tree"), {}).firstDifference(tree).value_or(""),
                  "");
        ASSERT_EQ(machine->run({"eject", "Full", "--discard"}).status, 0);
    }
}

TEST_F(KeptFiles, OfRootStayOnADiskEvenWhereItsPlaceIsRefused) {
    fs::create_directories(machine->privateMounts());
    ASSERT_EQ(chown(machine->privateMounts().c_str(), nobody, nobody), 0);
    for (const std::vector<std::string>& more :
         {std::vector<std::string>{}, {"--at-launch", "--keep-files"}}) {
        std::vector<std::string> arguments{"create", "--name", "Mine", "--size", "16M", "--access", "onlyMe"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        const auto made = machine->run(arguments);
        EXPECT_EQ(made.status, 1);
        EXPECT_THAT(made.err, HasSubstr("could not keep private the folder"));
        EXPECT_THAT(made.err, Not(AnyOf(HasSubstr("may not mount"), HasSubstr("at launch"))));
    }
    EXPECT_THAT(machine->traces(), testing::IsEmpty());
    EXPECT_TRUE(machine->run({"startup", "list", "--json"}).json().empty());
}

TEST_F(KeptFiles, AreNotLoadedBelowAnotherMount) {
    const auto root = makeKept("Work");
    fs::create_directory(root / "sub");
    writeFile(root / "sub/file", "saved");
    ASSERT_EQ(machine->run({"save", "Work"}).status, 0);
    writeFile(root / "newer", "newer");
    ASSERT_EQ(mount("inner", (root / "sub").c_str(), "tmpfs", 0, nullptr), 0);
    const auto loaded = machine->run({"load", "Work"});
    EXPECT_EQ(loaded.status, 1);
    EXPECT_THAT(loaded.err,
                HasSubstr("another volume is mounted on it, at “" + (root / "sub").string() + "”. Unmount"));
    EXPECT_EQ(readFile(root / "newer"), "newer");
    ASSERT_EQ(umount((root / "sub").c_str()), 0);
    EXPECT_EQ(machine->run({"save", "Work"}).err, "");
}

TEST_F(KeptFiles, ThatCannotBeReadAreKeptAsideWhenOthersAreTaken) {
    const auto root = makeKept("Work");
    writeFile(root / "file", std::string(5000, 's') + "precious");
    ASSERT_EQ(machine->run({"eject", "Work"}).status, 0);
    {
        const FileDescriptor image(open(latest().c_str(), O_WRONLY | O_CLOEXEC));
        const std::string zeros(1024, '\0');
        ASSERT_EQ(pwrite(image.get(), zeros.data(), zeros.size(), 1024), 1024);
    }
    EXPECT_EQ(machine->run({"startup", "create", "Work"}).status, 1);
    EXPECT_EQ(machine->run({"save", "Work", "--keep-current"}).err, "");
    writeFile(root / "file", "another");
    EXPECT_EQ(machine->run({"eject", "Work"}).err, "");
    int keptAside = 0;
    for (const auto& entry : fs::directory_iterator(savedContents())) {
        const bool isAside = entry.path().string().find(".damaged-") != std::string::npos;
        keptAside += isAside && readFile(entry.path()).find("precious") != std::string::npos ? 1 : 0;
    }
    EXPECT_EQ(keptAside, 1);
}

TEST_F(KeptFiles, ThatAreLostWhileASessionRunsAreTold) {
    const auto root = makeKept("Work");
    writeFile(root / "file", "saved");
    ASSERT_EQ(machine->run({"save", "Work"}).status, 0);
    // One that is ejected meanwhile is not lost, nor one that is given up.
    makeKept("Ejected");
    makeKept("Given up");
    const auto fresh = makeKept("Fresh");
    startSession({"-q"});
    EXPECT_EQ(machine->run({"eject", "Ejected"}).status, 0);
    EXPECT_EQ(machine->run({"eject", "Given up", "--discard"}).status, 0);
    for (const auto& gone : {root, fresh}) {
        ASSERT_EQ(umount2(gone.c_str(), MNT_DETACH), 0);
    }
    const auto ended = endSession();
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.err, HasSubstr("“Work” was unmounted without its files being saved. They were last "
                                     "saved on 2"));
    EXPECT_THAT(ended.err, HasSubstr("“Fresh” was unmounted without its files being saved. None of them "));
    EXPECT_THAT(ended.err, Not(AnyOf(HasSubstr("“Ejected”"), HasSubstr("“Given up”"))));
}

TEST_F(KeptFiles, AreNotDroppedByWhoDoesNotFindTheirRecord) {
    const auto expectBack = [this](const std::string& name) {
        EXPECT_EQ(machine->run({"startup", "create", name}).status, 0);
        EXPECT_EQ(readFile(mountPointOf(machine->list().at(name)) / "file"), "work");
    };
    // The command has another home folder, or the one with the saved files was moved away.
    const auto home = machine->folder() / "home/data";
    writeFile(makeKept("Away") / "file", "work");
    for (const bool isMoved : {false, true}) {
        if (isMoved) {
            fs::rename(home, machine->folder() / "moved");
        }
        machine->environment["XDG_DATA_HOME"] = machine->folder() / "other";
        const auto outcome = machine->run({"eject", "Away"});
        EXPECT_EQ(outcome.status, 1);
        EXPECT_THAT(outcome.err, HasSubstr("“Away” keeps its files in “" + savedContents().string()));
        machine->environment.erase("XDG_DATA_HOME");
    }
    fs::rename(machine->folder() / "moved", home);
    EXPECT_EQ(machine->run({"eject", "Away"}).status, 0);
    expectBack("Away");
    // Its record was given another name before any file was saved.
    writeFile(makeKept("Fresh") / "file", "work");
    auto text = readFile(support() / "Startup Disks.json");
    text.replace(text.find("Fresh"), 5, "Other");
    writeFile(support() / "Startup Disks.json", text);
    EXPECT_EQ(machine->run({"eject", "Fresh"}).status, 0);
    expectBack("Other");
}

TEST_F(KeptFiles, AreRefusedWhereTheirKeyCannotBeKept) {
    ASSERT_EQ(machine->run({"settings", "set", "allowsKeyFile", "false"}).status, 0);
    std::vector<std::string> arguments{"create",      "--name",       "Vault",    "--size",
                                       "32M",         "--format",     "apfs",     "--encrypt",
                                       "--at-launch", "--keep-files", "--dry-run"};
    for (int round = 0; round < 2; ++round) {
        const auto outcome = machine->run(arguments);
        EXPECT_EQ(outcome.status, 1);
        EXPECT_THAT(outcome.err, HasSubstr("No keyring runs here"));
        arguments.pop_back();
    }
    EXPECT_THAT(machine->list(), IsEmpty());
}

TEST_F(KeptFiles, ADiskWhoseNewNameCannotBeStoredHasItsOldOne) {
    const TmpfsMount small(support(), "size=64k");
    makeKept("Work");
    fillUp(support() / "full", 4096);
    EXPECT_EQ(machine->run({"rename", "Work", "Other"}).status, 1);
    EXPECT_EQ(machine->list().count("Work"), 1U);
    fs::remove_all(support() / "full");
    EXPECT_EQ(machine->run({"eject", "Work"}).status, 1) << "there is no room to save an empty disk";
    EXPECT_EQ(machine->run({"eject", "Work", "--discard"}).status, 0);
}

TEST_F(KeptFiles, EntriesThatASessionCannotReadAreTold) {
    makeKept("Work");
    const auto list = support() / "Startup Disks.json";
    auto text = readFile(list);
    text.insert(text.size() - 1, R"(,{"id":"of a newer version"})");
    writeFile(list, text);
    startSession({"-q"});
    const auto ended = endSession();
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.err, HasSubstr("One stored startup disk is not understood by this version"));
}

TEST_F(KeptFiles, AnEjectOfADiskWhoseMemoryIsHeldSaysSo) {
    const auto root = makeKept("Work");
    const FileDescriptor file(open((root / "file").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    ASSERT_EQ(ftruncate(file.get(), 4096), 0);
    EXPECT_EQ(machine->run({"eject", "--force", "Work"}).status, 0);
    const auto again = machine->run({"eject", "Work"});
    EXPECT_THAT(again.err, HasSubstr("it is ejected, but its memory is kept by tramdisk_tests ("));
    EXPECT_EQ(again.status, 1);
}

} // namespace
} // namespace ramdisk::test
