#include "RamDiskInfrastructure/Commands/FileDescriptor.h"
#include "tests/support/Linux/TestMachine.h"
#include "tests/support/Linux/TestMount.h"

namespace ramdisk::test {
namespace {

class Redirects : public testing::Test {
protected:
    void SetUp() override {
        SKIP_UNLESS_ROOT();
        machine.emplace();
        folder = machine->folder() / "home/p/target";
        fs::create_directories(folder);
        writeFile(folder / "mine", "old");
        mountPoint = machine->create("Dev", {"--size", "8M"}).at("mountPoint").get<std::string>();
    }
    Outcome redirects(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), "redirects");
        return machine->run(arguments);
    }
    void add() const { ASSERT_EQ(redirects({"add", "Dev", "folder:p/target"}).status, 0); }
    void expectTold(const Outcome& outcome, int status, const std::string& text) const {
        EXPECT_EQ(outcome.status, status) << outcome.out << outcome.err;
        EXPECT_THAT(outcome.out + outcome.err, HasSubstr(text));
    }

    std::optional<TestMachine> machine;
    fs::path folder;
    fs::path mountPoint;
};

TEST_F(Redirects, AFolderInUseKeepsTheDiskUntilItIsForced) {
    add();
    writeFile(folder / "new", "new");
    {
        const TmpfsMount cover(folder);
        expectTold(redirects({}), 0, "covered by another mount");
        expectTold(machine->run({"eject", "Dev"}), 1, "The disk is in use: Something else is mounted over");
    }
    {
        const TmpfsMount inner(folder / "inner");
        writeFile(folder / "inner/file", "precious");
        for (const std::vector<std::string>& command :
             {std::vector<std::string>{"eject", "Dev"},
              {"eject", "Dev", "--force"},
              {"redirects", "remove", "Dev", "folder:p/target", "--discard"}}) {
            expectTold(machine->run(command), 1,
                       "another volume is mounted on it, at “" + (folder / "inner").string() + "”.");
            EXPECT_EQ(readFile(folder / "inner/file"), "precious");
        }
    }
    const FileDescriptor user(open((folder / "new").c_str(), O_RDONLY | O_CLOEXEC));
    expectTold(machine->run({"eject", "Dev"}), 1, "p/target” is kept busy by ");
    EXPECT_EQ(readFile(folder / "new"), "new");
    expectTold(redirects({}), 0, "in place");
    EXPECT_EQ(machine->run({"eject", "Dev", "--force"}).status, 0);
    EXPECT_EQ(readFile(folder / "mine"), "old");
}

TEST_F(Redirects, AFolderThatOutlivesItsDiskIsNotTheDisk) {
    add();
    ASSERT_EQ(umount2(mountPoint.c_str(), 0), 0);
    EXPECT_THAT(machine->run({"list"}).out, testing::Not(HasSubstr("p/target")));
    EXPECT_EQ(redirects({"repair"}).status, 0);
    EXPECT_EQ(readFile(folder / "mine"), "old");
    EXPECT_THAT(machine->list(), IsEmpty());
}

TEST_F(Redirects, FilesOnTheDiskGoOnlyWhereTheyAreToldTo) {
    add();
    writeFile(folder / "new", std::string(5000, 'x'));
    expectTold(redirects({"remove", "Dev", "folder:p/target"}), 1, "--keep-files");
    expectTold(redirects({"add", "Dev", "folder:p/target"}), 0, "It has files on the disk already");
    expectTold(redirects({"remove", "Dev", "folder:p/target", "--discard", "--forget"}), 2, "Give one of");
    expectTold(redirects({"remove", "Dev", "folder:p/target", "--keep-files"}), 0,
               "p/target.ramdisk-former”.");
    EXPECT_TRUE(fs::exists(folder / "new"));
    EXPECT_EQ(redirects({"add", "Dev", "folder:p/target", "--copy"}).status, 0);
    EXPECT_TRUE(fs::exists(mountPoint / "Redirected/p+target/new"));
    expectTold(redirects({"remove", "Dev", "folder:p/target", "--discard"}), 0,
               "Its files on “Dev” are deleted (8 KB).");
    expectTold(redirects({"remove", "Dev", "folder:p/target"}), 1, "It is not kept on “Dev”.");
    for (const auto& command : {std::vector<std::string>{"create", "--dry-run", "--redirect", "folder:../x"},
                                {"redirects", "add", "Dev", "folder:../x"}}) {
        expectTold(machine->run(command), 1, "“../x” is not a folder to make on the disk.");
    }
    expectTold(redirects({"add", "Dev", "folder:p/target"}), 0, "Starts empty");
    EXPECT_EQ(machine->run({"eject", "Dev"}).status, 0);
    expectTold(redirects({"remove", "Dev", "folder:p/target"}), 0, "“Dev” is not mounted.");
}

TEST_F(Redirects, ADamagedListIsToldEverywhereAndRepaired) {
    for (const auto* const rung : {"kernel", "folder"}) {
        SCOPED_TRACE(rung);
        machine->environment["TRAMDISK_HOST"] = rung;
        add();
        machine->environment.erase("TRAMDISK_HOST");
        writeFile(machine->folder() / "home/data/Tavrin RamDisk/Folder Redirects.json", "{}");
        for (const auto& command :
             std::vector<std::vector<std::string>>{{"redirects"},
                                                   {"redirects", "add", "Dev", "tmp"},
                                                   {"redirects", "remove", "Dev", "tmp"},
                                                   {"eject", "Dev"}}) {
            expectTold(machine->run(command), 1, "cannot be read");
        }
        EXPECT_FALSE(fs::exists(folder / "mine"));
        expectTold(redirects({"repair"}), 1, "Folders found in place: 1.");
        expectTold(redirects({"repair"}), 0, "Every folder is where it belongs.");
        expectTold(redirects({}), 0, "in place");
        expectTold(redirects({"remove", "Dev", "folder:p/target"}), 0, "is back in its place.");
        EXPECT_EQ(readFile(folder / "mine"), "old");
    }
    EXPECT_EQ(machine->run({"eject", "Dev"}).status, 0);
}

TEST_F(Redirects, WhatStandsWithoutAnUnderstoodEntryComesBack) {
    const auto file = machine->folder() / "home/data/Tavrin RamDisk/Folder Redirects.json";
    for (const auto* const rung : {"kernel", "folder"}) {
        for (const auto* const damage : {"misspelt", "[]", "missing"}) {
            for (const auto* const command : {"eject", "repair"}) {
                SCOPED_TRACE(std::string(rung) + " " + damage + " " + command);
                machine->environment["TRAMDISK_HOST"] = rung;
                add();
                machine->environment.erase("TRAMDISK_HOST");
                auto text = readFile(file);
                fs::remove(file);
                if (const std::string kind = damage; kind == "misspelt") {
                    writeFile(file, text.replace(text.find("diskName"), 8, "diskNme"));
                } else if (kind == "[]") {
                    writeFile(file, damage);
                }
                const bool isEject = std::string(command) == "eject";
                const auto outcome = isEject ? machine->run({"eject", "Dev"}) : redirects({command});
                EXPECT_THAT(outcome.err, HasSubstr("“p/target” was still on a disk"));
                EXPECT_FALSE(fs::is_symlink(folder));
                EXPECT_EQ(readFile(folder / "mine"), "old");
                fs::remove(file);
                if (isEject) {
                    EXPECT_EQ(outcome.status, 0) << outcome.err;
                    mountPoint = machine->create("Dev", {"--size", "8M"}).at("mountPoint").get<std::string>();
                }
            }
        }
    }
}

TEST_F(Redirects, ASettingThatStandsWithoutAnUnderstoodEntryIsTakenAway) {
    const auto file = machine->folder() / "home/data/Tavrin RamDisk/Folder Redirects.json";
    const auto npmrc = machine->folder() / "home/.npmrc";
    for (const auto* const command : {"eject", "repair"}) {
        for (const bool isMissing : {true, false}) {
            writeFile(npmrc, "registry=x\n");
            ASSERT_EQ(redirects({"add", "Dev", "npm"}).status, 0);
            auto text = readFile(file);
            writeFile(file, isMissing ? "[]" : text.replace(text.find("npmCache"), 8, "npmCash"));
            const bool isEject = std::string(command) == "eject";
            const auto outcome = isEject ? machine->run({"eject", "Dev"}) : redirects({command});
            EXPECT_THAT(outcome.err, HasSubstr("“npm” still led to a disk, although no redirect is stored"));
            EXPECT_EQ(readFile(npmrc), "registry=x\n");
            fs::remove(file);
            if (isEject) {
                EXPECT_EQ(outcome.status, 0) << outcome.err;
                mountPoint = machine->create("Dev", {"--size", "8M"}).at("mountPoint").get<std::string>();
            }
        }
    }
}

TEST_F(Redirects, AnEjectThatDoesNotFindALinkFails) {
    machine->environment["TRAMDISK_HOST"] = "folder";
    add();
    machine->environment.erase("TRAMDISK_HOST");
    const auto parent = folder.parent_path();
    fs::rename(parent, machine->folder() / "home/moved");
    fs::create_directories(folder);
    const auto outcome = machine->run({"eject", "Dev"});
    EXPECT_EQ(outcome.status, 1) << outcome.err;
    EXPECT_THAT(outcome.err, HasSubstr("p/target"));
    EXPECT_THAT(machine->list(), IsEmpty());
}

TEST_F(Redirects, AnOriginalIsToldWithANameThatIsFreeAndNotWhenItIsKeptOnPurpose) {
    add();
    writeFile(folder / "new", "new");
    expectTold(redirects({"remove", "Dev", "folder:p/target", "--keep-files"}), 0,
               "p/target.ramdisk-former”.");
    const auto after = redirects({"repair"});
    expectTold(after, 0, "Every folder is where it belongs.");
    EXPECT_THAT(after.err, IsEmpty());
    struct Case {
        std::vector<std::string> folders;
        int status;
        std::string text;
    };
    for (const auto& [folders, status, text] :
         {Case{{"q.ramdisk-original"}, 1, "give it the name “q” again."},
          Case{{"q.ramdisk-original", "q 2.ramdisk-original"}, 1, "give it the name “q” again."},
          Case{{"q", "q 2.ramdisk-original"}, 0, "“q” is there again."},
          Case{{"q 2.ramdisk-original"}, 1, "give it the name “q 2” again."},
          Case{{"q.ramdisk-former"}, 1, "give it the name “q” again."}}) {
        for (const auto& name : folders) {
            fs::create_directory(machine->folder() / "home" / name);
        }
        const auto told = redirects({"repair"});
        expectTold(told, status, text);
        EXPECT_THAT(folders.size() > 1 ? told.err : "", testing::Not(HasSubstr("name “q 2”")));
        for (const auto& name : folders) {
            fs::remove(machine->folder() / "home" / name);
        }
    }
}

TEST_F(Redirects, WhoUsesAFolderIsToldByWhateverTakesItOffTheDisk) {
    ASSERT_EQ(machine->run({"settings", "set", "allowsKeyFile", "true"}).status, 0);
    ASSERT_EQ(machine->run({"configure", "Dev", "--at-launch", "--keep-files"}).status, 0);
    writeFile(mountPoint / "file", "saved");
    ASSERT_EQ(machine->run({"save", "Dev"}).status, 0);
    writeFile(mountPoint / "file", "newer");
    add();
    writeFile(folder / "new", "new");
    const FileDescriptor user(open((folder / "new").c_str(), O_RDONLY | O_CLOEXEC));
    for (const auto& command :
         std::vector<std::vector<std::string>>{{"configure", "Dev", "--access", "onlyMe"}, {"load", "Dev"}}) {
        const auto told = machine->run(command);
        expectTold(told, 1, "The disk is in use: “" + folder.string() + "” is kept busy by tramdisk_tests (");
        EXPECT_THAT(told.err, testing::Not(HasSubstr("could not be moved")));
        EXPECT_EQ(machine->list().at("Dev").at("access"), "everyone");
        EXPECT_EQ(readFile(mountPoint / "file"), "newer");
        expectTold(redirects({}), 0, "in place");
    }
}

TEST_F(Redirects, AMountInAFolderIsNeitherCopiedNorDeleted) {
    const auto inner = folder / "inner";
    const auto named = [&](const fs::path& path) { return "mounted on it, at “" + path.string() + "”."; };
    {
        const TmpfsMount mount(inner);
        expectTold(redirects({"add", "Dev", "folder:p/target", "--copy"}), 1, named(inner));
        EXPECT_FALSE(fs::exists(mountPoint / "Redirected"));
        expectTold(redirects({}), 0, "No folders are kept");
    }
    for (const auto* const rung : {"kernel", "folder"}) {
        machine->environment["TRAMDISK_HOST"] = rung;
        add();
        machine->environment.erase("TRAMDISK_HOST");
        writeFile(folder / "new", "new");
        {
            const TmpfsMount mount(inner);
            writeFile(inner / "precious", "x");
            for (const auto* const option : {"--keep-files", "--discard"}) {
                expectTold(redirects({"remove", "Dev", "folder:p/target", option}), 1,
                           named(fs::canonical(inner)));
                expectTold(redirects({}), 0, "in place");
                EXPECT_EQ(readFile(folder / "new"), "new");
                EXPECT_EQ(readFile(inner / "precious"), "x");
            }
        }
        EXPECT_EQ(redirects({"remove", "Dev", "folder:p/target", "--discard"}).status, 0);
        EXPECT_EQ(readFile(folder / "mine"), "old");
    }
}

TEST_F(Redirects, ACoveredFolderKeepsTheDiskWithoutARecordToo) {
    add();
    writeFile(machine->folder() / "home/data/Tavrin RamDisk/Folder Redirects.json", "[]");
    {
        const TmpfsMount cover(folder);
        expectTold(machine->run({"eject", "Dev"}), 1,
                   "The disk is in use: Something else is mounted over “~/p/target”");
        expectTold(redirects({"repair"}), 1, "Something else is mounted over “~/p/target”");
    }
    expectTold(machine->run({"eject", "Dev"}), 0, "“p/target” was still on a disk");
    EXPECT_EQ(readFile(folder / "mine"), "old");
}

TEST_F(Redirects, ALinkInAGitProjectIsToldWithWhatKeepsIt) {
    machine->environment["TRAMDISK_HOST"] = "folder";
    const auto git = [&](const std::string& arguments) {
        const auto project = (machine->folder() / "home/p").string();
        return std::system(("git -C '" + project + "' " + arguments + " >/dev/null 2>&1").c_str());
    };
    const auto outcome = redirects({"add", "Dev", "folder:p/target"});
    EXPECT_THAT(outcome.err, testing::Not(HasSubstr("git")));
    ASSERT_EQ(redirects({"remove", "Dev", "folder:p/target"}).status, 0);
    ASSERT_EQ(git("init -q"), 0);
    writeFile(folder.parent_path() / "scrap", "");
    expectTold(redirects({"add", "Dev", "folder:p/target"}), 0,
               "`git clean -fdx` would delete the link “~/p/target” and the original beside it: add `-e "
               "'/target*'` to it, or eject the disk first.");
    ASSERT_EQ(git("clean -fdx -e '/target*'"), 0);
    EXPECT_FALSE(fs::exists(folder.parent_path() / "scrap"));
    ASSERT_EQ(machine->run({"eject", "Dev"}).status, 0);
    EXPECT_EQ(readFile(folder / "mine"), "old");
}

TEST_F(Redirects, WhatToKnowOfATargetIsToldWhereItIsAddedAndListed) {
    expectTold(redirects({}), 0, "Xcode, npm and other tools can keep their folders on a disk");
    const auto both = [&](const std::string& target, const std::string& empty, const std::string& filled) {
        const auto name = target == "chrome" ? ".cache+google-chrome" : ".cache+" + target;
        expectTold(redirects({"add", "Dev", "cache:" + target}), 0, empty);
        writeFile(mountPoint / "Redirected" / name / "file", "x");
        expectTold(redirects({"add", "Dev", "cache:" + target}), 0, filled);
    };
    both("pip", "note: ~/.cache/pip. Starts empty; the original comes back when the disk goes away.",
         "note: ~/.cache/pip. It has files on the disk already; the original comes back when the disk goes "
         "away.");
    both("chrome", "note: Quit Chrome first. The cache starts empty and the original comes back",
         "note: Quit Chrome first. The cache has files on the disk already and the original comes back");
    expectTold(machine->run({"configure", "Dev", "--redirect", "npm"}), 0,
               "note: Downloaded packages, set in ~/.npmrc.");
    expectTold(machine->run({"create", "--name", "New", "--size", "8M", "--redirect", "folder:q"}), 0,
               "note: Starts empty on the disk; the original is put back when the disk goes away.");
    const auto list = redirects({});
    EXPECT_THAT(list.out, HasSubstr("Chrome cache"));
    EXPECT_THAT(list.out, HasSubstr("npm cache"));
    EXPECT_EQ(redirects({"--json"}).json().front().at("title"), "pip cache");
}

TEST_F(Redirects, TheLastFilesOfADiskThatWasUnmountedStayUntilTheyAreGivenUp) {
    add();
    writeFile(folder / "work", "hours");
    ASSERT_EQ(umount2(mountPoint.c_str(), 0), 0);
    for (const std::vector<std::string>& command :
         {std::vector<std::string>{"redirects", "repair"},
          {"redirects", "remove", "Dev", "folder:p/target"},
          {"redirects", "remove", "Dev", "folder:p/target", "--keep-files"},
          {"eject", "Dev"},
          {"create", "--name", "Dev", "--size", "8M"}}) {
        EXPECT_EQ(machine->run(command).status, 1) << command[0] << command[1];
        EXPECT_EQ(readFile(folder / "work"), "hours") << command[0] << command[1];
    }
    expectTold(redirects({"repair"}), 1,
               "p/target” has the last files of “Dev”, whose volume was unmounted.");
    expectTold(redirects({"remove", "Dev", "folder:p/target", "--discard"}), 0, "");
    EXPECT_EQ(readFile(folder / "mine"), "old");
}

TEST_F(Redirects, AreTakenFromADiskWhoseNewNameCouldNotBeStored) {
    add();
    // Refused where a list has to hold the name.
    EXPECT_EQ(machine->run({"rename", "Dev", "W\xff"}).status, 1);
    const auto list = machine->folder() / "home/data/Tavrin RamDisk/Folder Redirects.json";
    auto text = readFile(list);
    text.replace(text.find("\"Dev\""), 5, "\"Old\"");
    writeFile(list, text);
    EXPECT_EQ(machine->run({"eject", "Dev"}).status, 0);
    EXPECT_EQ(readFile(folder / "mine"), "old");
}

} // namespace
} // namespace ramdisk::test
