#include "tests/support/Linux/KillLoop.h"
#include "tests/support/Linux/TreeDescription.h"
#include "tests/tramdisk/KeptDisks.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <set>
#include <thread>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace ramdisk::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace fs = std::filesystem;

/// Every item on a disk, but its root, which has the mark of the disk.
std::map<std::string, std::string> itemsOf(const fs::path& root) {
    auto items = describeTree(root);
    items.erase(".");
    return items;
}

void expectItems(const fs::path& root, const std::map<std::string, std::string>& expected) {
    auto items = itemsOf(root);
    EXPECT_EQ(items.size(), expected.size());
    for (const auto& [path, item] : expected) {
        EXPECT_EQ(items[path], item) << path;
    }
}

/// Changes a file through a shared mapping alone, which leaves its dates as they are.
void changeThroughMapping(const fs::path& file) {
    const int descriptor = open(file.c_str(), O_RDWR | O_CLOEXEC);
    auto* bytes = static_cast<char*>(mmap(nullptr, 8192, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0));
    ASSERT_NE(bytes, MAP_FAILED);
    std::memset(bytes + 4096, 'b', 16);
    munmap(bytes, 8192);
    close(descriptor);
}

class Session : public KeptDisks {
protected:
    /// Files of saves that are not over.
    [[nodiscard]] std::vector<std::string> partialFiles() const {
        std::vector<std::string> found;
        for (const auto& entry : fs::directory_iterator(savedContents())) {
            if (entry.path().string().find(".partial-") != std::string::npos) {
                found.push_back(entry.path().string());
            }
        }
        return found;
    }
};

TEST_F(Session, PutsFoldersBackWhenADiskGoesAndTellsWhatItMetAtQuit) {
    const auto home = machine->folder() / "home";
    fs::path gone;
    for (const auto* const name : {"Gone", "Here"}) {
        fs::create_directories(home / name);
        writeFile(home / name / "mine", name);
        machine->environment.erase("TRAMDISK_HOST");
        const auto disk = machine->create(name, {"--size", "16M", "--at-launch"});
        gone = gone.empty() ? mountPointOf(disk) : gone;
        machine->environment["TRAMDISK_HOST"] = std::string(name) == "Here" ? "folder" : "kernel";
        ASSERT_EQ(machine->run({"redirects", "add", name, std::string("folder:") + name}).status, 0);
    }
    machine->environment.erase("TRAMDISK_HOST");
    ASSERT_TRUE(fs::is_symlink(home / "Here"));
    ASSERT_FALSE(fs::exists(home / "Gone/mine"));
    startSession();
    ASSERT_EQ(umount2(gone.c_str(), MNT_DETACH), 0);
    for (int attempt = 0; attempt < 500 && !fs::exists(home / "Gone/mine"); ++attempt) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ASSERT_TRUE(fs::exists(home / "Gone/mine")) << "nobody noticed";

    fs::remove(home / "Here");
    fs::create_directory(home / "Here");
    writeFile(home / "Here/made", "meanwhile");
    EXPECT_EQ(endSession().status, 1) << "a folder that was in the way is to be told";
    EXPECT_EQ(readFile(home / "Here/mine"), "Here");
    EXPECT_EQ(readFile(home / "Here.ramdisk-kept/made"), "meanwhile");
}

TEST_F(Session, ADamagedListOfRedirectsKeepsNoDiskAtQuit) {
    const auto folder = machine->folder() / "home/p";
    fs::create_directory(folder);
    writeFile(folder / "mine", "old");
    machine->create("Dev", {"--size", "16M", "--at-launch"});
    ASSERT_EQ(machine->run({"redirects", "add", "Dev", "folder:p"}).status, 0);
    startSession();
    writeFile(support() / "Folder Redirects.json", "[");
    EXPECT_EQ(endSession().status, 1) << "it is to be told";
    EXPECT_EQ(readFile(folder / "mine"), "old");
    EXPECT_THAT(machine->list(), IsEmpty());
}

TEST_F(Session, BringsEveryFileBackOnEveryKindOfDisk) {
    std::map<std::string, std::map<std::string, std::string>> trees;
    const std::map<std::string, std::vector<std::string>> disks{
        {"Plain", {}},
        {"Journaled", {"--format", "jhfs+"}},
        {"Vault", {"--format", "apfs", "--encrypt", "--access", "onlyMe"}}};
    for (const auto& [name, options] : disks) {
        const auto root = makeKept(name, options);
        makeOddTree(root);
        trees[name] = itemsOf(root);
    }
    startSession();
    EXPECT_EQ(machine->run({"session"}).status, 1);
    EXPECT_EQ(endSession().status, 0);
    EXPECT_THAT(machine->list(), IsEmpty());
    EXPECT_THAT(machine->traces(), IsEmpty());
    EXPECT_EQ(machine->run({"session", "status", "--json"}).json().at("isRunning"), false);

    startSession();
    const auto standing = machine->list();
    for (const auto& [name, tree] : trees) {
        ASSERT_TRUE(standing.contains(name)) << name;
        SCOPED_TRACE(name);
        const auto root = mountPointOf(standing.at(name));
        expectItems(root, tree);
        changeThroughMapping(root / "big");
        trees[name] = itemsOf(root);
    }
    EXPECT_EQ(endSession().status, 0);
    startSession();
    for (const auto& [name, disk] : machine->list()) {
        expectItems(mountPointOf(disk), trees.at(name));
    }
    EXPECT_EQ(endSession().status, 0);
}

TEST_F(Session, SavesLoadsAndListsCopies) {
    const auto root = makeKept("Work");
    writeFile(root / "file", "one");
    const auto saved = machine->run({"save", "--verify"});
    EXPECT_EQ(saved.out, "The files of “Work” are saved.\n") << saved.err;
    EXPECT_EQ(machine->run({"save", "Work"}).out, "Nothing changed on “Work” since it was saved.\n");
    EXPECT_EQ(machine->run({"copies", "Work", "--json"}).json().size(), 1U);
    EXPECT_EQ(machine->run({"load", "Work", "--copy", "2"}).err,
              "tramdisk: Could not copy the contents: there is no copy 2 of “Work”; the oldest is copy 1.\n");
    writeFile(root / "file", "two");
    writeFile(root / "more", "two");
    EXPECT_EQ(machine->run({"load", "Work"}).out, "Copy 1 is on “Work”.\n");
    EXPECT_EQ(readFile(root / "file"), "one");
    EXPECT_FALSE(fs::exists(root / "more"));

    writeFile(root / "file", "three");
    EXPECT_EQ(machine->run({"eject", "Work"}).status, 0);
    EXPECT_EQ(machine->run({"startup", "create", "Work"}).out, "“Work” is ready, with its saved files.\n");
    EXPECT_EQ(readFile(root / "file"), "three");
    writeFile(root / "file", "thrown away");
    EXPECT_EQ(machine->run({"eject", "Work", "--discard"}).status, 0);
    EXPECT_EQ(machine->run({"startup", "create", "Work"}).status, 0);
    EXPECT_EQ(readFile(root / "file"), "three");

    EXPECT_EQ(machine->run({"startup", "remove", "Work"}).status, 1);
    EXPECT_EQ(machine->run({"startup", "remove", "Work", "--force"}).status, 0);
    for (const auto& entry : fs::directory_iterator(savedContents())) {
        EXPECT_EQ(entry.path().extension(), ".lock") << entry.path();
    }
    EXPECT_EQ(machine->run({"save", "Work"}).err,
              "tramdisk: “Work” is not a startup disk. Make it one with `tramdisk startup add`.\n");
}

TEST_F(Session, KeepsADiskInUseAndSaysSo) {
    const auto root = makeKept("Work");
    startSession();
    const int file = open((root / "open").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    EXPECT_EQ(endSession().status, 1);
    EXPECT_TRUE(machine->list().contains("Work"));
    // Still writable, since it stays.
    EXPECT_EQ(write(file, "x", 1), 1);
    close(file);
    writeFile(root / "later", "still writable");
    EXPECT_EQ(machine->run({"eject", "Work"}).status, 0);
}

TEST_F(Session, AKilledSaveOrRestoreCostsNothing) {
    constexpr int files = 20;
    auto root = makeKept("Work");
    int round = 0;
    int acknowledged = 0;
    // A session brings back all of one round, and no earlier one than was promised.
    const auto expectRestored = [&] {
        startSession();
        ASSERT_TRUE(machine->list().contains("Work")) << machine->run({"startup", "create", "Work"}).err;
        root = mountPointOf(machine->list().at("Work"));
        EXPECT_THAT(partialFiles(), IsEmpty());
        const auto first = readFile(root / "file0");
        EXPECT_GE(std::atoi(first.c_str()), acknowledged);
        for (int index = 0; index < files && acknowledged > 0; ++index) {
            EXPECT_EQ(readFile(root / ("file" + std::to_string(index))), first);
        }
        killSession();
    };
    const auto discard = [&] { ASSERT_EQ(machine->run({"eject", "Work", "--discard"}).status, 0); };
    killAtEveryCall({[&] {
                         ++round;
                         for (int index = 0; index < files; ++index) {
                             writeFile(root / ("file" + std::to_string(index)),
                                       std::to_string(round) + std::string(9000, 'x'));
                         }
                     },
                     [&] {
                         machine->become({"save", "Work"});
                     },
                     [&](std::optional<int> status) {
                         EXPECT_EQ(status.value_or(0), 0);
                         acknowledged = status ? round : acknowledged;
                         discard();
                         expectRestored();
                     }});
    killAtEveryCall({[&] {
                         ASSERT_EQ(machine->run({"eject", "Work", "--discard"}).status, 0);
                     },
                     [&] {
                         machine->become({"startup", "create", "Work"});
                     },
                     [&](std::optional<int> status) {
                         EXPECT_EQ(status.value_or(0), 0);
                         expectRestored();
                     }});
    discard();
    EXPECT_THAT(machine->traces(), IsEmpty());
}

TEST_F(Session, ALoadThatIsKilledLeavesNoMixture) {
    auto root = mountPointOf(machine->create("Two"));
    constexpr int files = 12;
    const auto fill = [&](const std::string& text) {
        for (int index = 0; index < files; ++index) {
            writeFile(root / (text + std::to_string(index)), text + std::string(9000, 'x'));
            writeFile(root / ("both" + std::to_string(index)), text + std::string(9000, 'x'));
        }
    };
    killAtEveryCall(
        {.prepare =
             [&] {
                 // The copies change places with every load; both are made anew.
                 machine->run({"eject", "Two", "--discard"});
                 machine->run({"startup", "remove", "Two", "--force"});
                 root = mountPointOf(machine->create("Two"));
                 ASSERT_EQ(machine->run({"startup", "add", "Two", "--keep-files", "--copies", "1"}).status,
                           0);
                 fill("a");
                 EXPECT_EQ(machine->run({"save", "Two"}).status, 0);
                 for (int index = 0; index < files; ++index) {
                     fs::remove(root / ("a" + std::to_string(index)));
                 }
                 fill("b");
                 EXPECT_EQ(machine->run({"save", "Two"}).status, 0);
             },
         .work =
             [&] {
                 machine->become({"load", "Two", "--copy", "2"});
             },
         .check =
             [&](std::optional<int> status) {
                 EXPECT_EQ(status.value_or(0), 0);
                 startSession();
                 std::set<char> kinds;
                 int count = 0;
                 for (const auto& entry : fs::directory_iterator(root)) {
                     if (entry.is_regular_file() && !entry.path().filename().native().starts_with('.')) {
                         kinds.insert(readFile(entry.path())[0]);
                         ++count;
                     }
                 }
                 EXPECT_EQ(kinds.size(), 1U);
                 EXPECT_EQ(count, 2 * files);
                 killSession();
             },
         .most = 12});
}

TEST_F(Session, ADiskWhoseRecordIsLostIsSavedByItsSessionAndDroppedByNobody) {
    const auto root = makeKept("Work");
    startSession();
    writeFile(root / "file", "precious");
    const auto list = support() / "Startup Disks.json";
    const auto intact = readFile(list);
    writeFile(list, intact + "]");
    const auto refused = machine->run({"eject", "Work"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_THAT(refused.err, HasSubstr("“Work” keeps its files"));
    // It launched the disk, so it knows how to save it; that the next one cannot, it tells.
    EXPECT_EQ(endSession().status, 1);
    EXPECT_THAT(machine->list(), IsEmpty());
    startSession();
    EXPECT_EQ(endSession().status, 1);
    writeFile(list, intact);
    startSession();
    EXPECT_EQ(readFile(root / "file"), "precious");
    EXPECT_EQ(endSession().status, 0);
}

TEST_F(Session, NoAcknowledgedLineIsMissingAfterAnEject) {
    const auto* wanted = std::getenv("TRAMDISK_EJECTS");
    const int ejects = wanted != nullptr ? std::atoi(wanted) : 20;
    makeKept("Tmpfs");
    makeKept("Ext4", {"--format", "jhfs+"});
    auto* const written = static_cast<std::atomic<long>*>(
        mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(written, MAP_FAILED);
    for (int round = 0; round < ejects; ++round) {
        const std::string name = round % 2 == 0 ? "Tmpfs" : "Ext4";
        const auto log = mountPointOf(machine->list().at(name)) / "log";
        writeFile(log, "");
        *written = 0;
        const auto writer = fork();
        if (writer == 0) {
            // What is there once the disk is gone has no such file.
            for (long line = 1;; ++line) {
                const int file = open(log.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
                if (file < 0 || write(file, "line\n", 5) != 5) {
                    _exit(0);
                }
                usleep(2000);
                close(file);
                *written = line;
                usleep(3000);
            }
        }
        auto outcome = machine->run({"eject", name});
        for (int attempt = 1; outcome.status != 0 && attempt < 20; ++attempt) {
            outcome = machine->run({"eject", name});
        }
        kill(writer, SIGKILL);
        waitFor(writer);
        ASSERT_EQ(outcome.status, 0) << outcome.err;
        EXPECT_EQ(machine->run({"startup", "create", name}).status, 0);
        EXPECT_GE(static_cast<long>(fs::file_size(log)) / 5, written->load()) << name << ", round " << round;
    }
    munmap(written, 4096);
}

TEST_F(Session, ADiskWithoutItsSavedFilesIsSavedOnRequest) {
    const auto root = makeKept("Work");
    writeFile(root / "file", "saved");
    ASSERT_EQ(machine->run({"eject", "Work"}).status, 0);
    fs::path image;
    for (const auto& entry : fs::directory_iterator(savedContents())) {
        image = entry.path().extension() == ".sparseimage" ? entry.path() : image;
    }
    fs::rename(image, image.string() + ".away");
    EXPECT_EQ(machine->run({"startup", "create", "Work"}).status, 1);
    writeFile(root / "file", "current");
    const auto refused = machine->run({"save", "Work"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_THAT(refused.err, HasSubstr("`tramdisk save Work --keep-current`"));
    EXPECT_EQ(machine->run({"save", "--keep-current"}).status, 2);
    EXPECT_EQ(machine->run({"save", "Work", "--keep-current"}).status, 0);
    ASSERT_EQ(machine->run({"eject", "Work"}).status, 0);
    EXPECT_EQ(machine->run({"startup", "create", "Work"}).status, 0);
    EXPECT_EQ(readFile(root / "file"), "current");

    machine->environment["XDG_DATA_HOME"] = "/dev/shm/ramdisk test " + std::to_string(getpid());
    EXPECT_THAT(
        machine->run({"create", "--name", "Other", "--size", "8M", "--at-launch", "--keep-files"}).err,
        HasSubstr("do not outlive a restart"));
    EXPECT_EQ(machine->run({"eject", "Other"}).status, 0);
    fs::remove_all(machine->environment["XDG_DATA_HOME"]);
}

TEST_F(Session, ADiskThatChangesItsPlaceTakesItsRedirectsAlong) {
    const auto outcome =
        machine->run({"create", "--name", "Dev", "--size", "64M", "--redirect", "cache:pip"});
    ASSERT_EQ(outcome.status, 0);
    const auto link = machine->folder() / "home/.cache/pip";
    writeFile(link / "wheel", "cached");
    ASSERT_EQ(machine->run({"configure", "Dev", "--name", "Tools", "--access", "onlyMe"}).err, "");
    EXPECT_EQ(readFile(link / "wheel"), "cached");
    EXPECT_EQ(readFile(machine->privateMounts() / "Tools/Redirected/.cache+pip/wheel"), "cached");
    EXPECT_THAT(machine->run({"redirects", "add", "Tools", "cache:ccache"}).err,
                HasSubstr("~/.cache/ccache. Starts empty; the original comes back when the disk goes away."));
    const auto listed = machine->run({"redirects", "--json"}).out;
    EXPECT_THAT(listed, HasSubstr(R"("target":{"folder":{"_0":".cache/ccache"}})"));
    EXPECT_THAT(listed,
                HasSubstr(R"("shownAs":"cache:ccache","title":"ccache","state":"inPlace","used":{"bytes":)"));
    EXPECT_THAT(machine->run({"redirects"}).out, HasSubstr("cache:pip     in place  4 KB"));
    ASSERT_EQ(machine->run({"redirects", "remove", "Tools", "cache:ccache"}).status, 0);
    ASSERT_EQ(machine->run({"rename", "Tools", "Dev"}).err, "");
    EXPECT_EQ(readFile(link / "wheel"), "cached");
    ASSERT_EQ(machine->run({"eject", "Dev"}).err, "");
    EXPECT_FALSE(fs::exists(fs::symlink_status(link)));
}

TEST_F(Session, FilesAreNotPromisedToBeKeptWhereTheyCannotBeSaved) {
    machine->environment["TRAMDISK_HOST"] = "folder";
    const auto outcome =
        machine->run({"create", "--name", "Dev", "--size", "4M", "--at-launch", "--keep-files"});
    EXPECT_THAT(outcome.err,
                HasSubstr("It will not be created at launch: Could not copy the contents: keeping "
                          "files needs the right to mount"));
    EXPECT_EQ(machine->run({"startup", "--json"}).out, "[]\n");
}

TEST_F(Session, RefusesWhatCannotBeMeant) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> rows{
        {{"create", "--keep-files"},
         "tramdisk: Only a disk that is made at launch keeps its files: give --at-launch with "
         "--keep-files.\n"},
        {{"startup", "frob"}, "tramdisk: `tramdisk startup` takes no further argument “frob”.\n"},
        {{"redirects", "add", "Work", "cache:none"},
         "tramdisk: “cache:none” is not a redirect target. Use xcode, npm, tmp, cache:NAME or "
         "folder:PATH.\n"}};
    for (const auto& [arguments, text] : rows) {
        const auto outcome = machine->run(arguments);
        EXPECT_EQ(outcome.status, 2) << arguments[1];
        EXPECT_EQ(outcome.err, text);
    }
    EXPECT_EQ(machine->run({"startup", "create", "None"}).err,
              "tramdisk: There is no startup disk named “None”.\n");
    EXPECT_EQ(machine->run({"create", "--template", "None"}).err,
              "tramdisk: There is no template named “None”.\n");
    EXPECT_THAT(machine->list(), IsEmpty());
}

} // namespace
} // namespace ramdisk::test
