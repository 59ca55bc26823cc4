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
               "p/target.ramdisk-original”.");
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

} // namespace
} // namespace ramdisk::test
