#include "RamDiskInfrastructure/Archive/SavedContentsArchiver.h"
#include "tests/RamDiskInfrastructure/Linux/SavedContents/SavingMachine.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <deque>
#include <fstream>
#include <functional>
#include <thread>

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace ramdisk::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

struct SavedDisk : SavingMachine {
    SavedContentsArchiver archiver{std::shared_ptr<SavedImageTool>(&tool, [](SavedImageTool*) {})};

    SaveOutcome keep(const RamDisk& disk, std::uint32_t previous = 0) {
        auto wanted = request(disk);
        wanted.previousCopies = previous;
        wanted.verification = Verification::yes;
        return archiver.save(wanted, {});
    }
};

/// A disk to save, and another of its kind for what was saved.
struct SavedAndPutBack : SavedDisk {
    explicit SavedAndPutBack(const std::string& format = "hfs+", const std::string& size = "48M")
        : disk(SavedDisk::disk("A", format, size)),
          onto(SavedDisk::disk("B", format, size)) {
        fs::create_directory(tree);
    }
    /// Puts the latest copy onto the other disk, which then holds the same.
    void expectSame() {
        restore(onto);
        EXPECT_EQ(difference(disk, onto), "");
    }

    RamDisk disk;
    RamDisk onto;
    fs::path tree = *disk.mountPoint / "tree";
};

TEST(SavedDisk, KeepsWhatAProgramWritesThroughAMappingAndEveryCopyThatIsToBeKept) {
    SKIP_UNLESS_ROOT();
    SavedDisk world;
    const auto disk = world.disk("A", "hfs+", "48M");
    const auto tree = *disk.mountPoint / "tree";
    for (int folder = 0; folder < 20; ++folder) {
        const auto place = tree / std::to_string(folder) / "odd\n“names”";
        fs::create_directories(place);
        for (int file = 0; file < 20; ++file) {
            writeFile(place / std::to_string(file), std::string(static_cast<std::size_t>(file * 300), 'x'));
        }
        const std::string value(static_cast<std::size_t>(folder * 150), 'v');
        ASSERT_EQ(setxattr(place.c_str(), "user.attribute", value.data(), value.size(), 0), 0);
    }
    writeFile(tree / "mapped", std::string(8192, '0'));
    Mapping mapping(tree / "mapped");

    EXPECT_EQ(world.keep(disk), SaveOutcome::saved);
    EXPECT_EQ(world.keep(disk), SaveOutcome::nothingChanged);
    for (const char change : {'2', '3', '4', '5'}) {
        mapping.write(change);
        fs::remove_all(tree / std::to_string(change - '0'));
        EXPECT_EQ(world.keep(disk, 1), SaveOutcome::saved);
        EXPECT_THAT(world.archiver.copies(world.files), SizeIs(2));
    }
    const auto copies = world.archiver.copies(world.files);
    const auto onto = world.disk("B", "hfs+", "48M");
    world.archiver.restore({world.files.latest, world.files, onto, {}, RestoreMode::fill}, {});
    EXPECT_EQ(SavingMachine::difference(disk, onto), "");
    EXPECT_EQ(readFile(*onto.mountPoint / "tree/mapped").front(), '5');
    world.archiver.restore({copies.at(1).image, world.files, onto, {}, RestoreMode::replace}, {});
    EXPECT_EQ(readFile(*onto.mountPoint / "tree/mapped").front(), '4') << "the earlier copy";
    EXPECT_TRUE(fs::exists(*onto.mountPoint / "tree/5"));

    world.archiver.remove(world.files);
    EXPECT_TRUE(fs::is_empty(world.images));
    EXPECT_THAT(world.loopsUpon(world.images), IsEmpty());
}

TEST(SavedDisk, IsCopiedAsItsManifestSaysWhateverIsWrittenMeanwhile) {
    SKIP_UNLESS_ROOT();
    SavedDisk world;
    const auto disk = world.disk("A", "hfs+", "48M");
    std::deque<Mapping> mappings;
    for (int number = 0; number < 24; ++number) {
        const auto file = *disk.mountPoint / std::to_string(number);
        writeFile(file, std::string(4096, '1'));
        mappings.emplace_back(file);
    }
    std::atomic<bool> isOver = false;
    std::thread writer([&] {
        for (char byte = '1'; !isOver; byte = byte == '1' ? '2' : '1') {
            std::for_each(mappings.begin(), mappings.end(),
                          [byte](Mapping& mapping) { mapping.write(byte); });
            std::this_thread::sleep_for(std::chrono::milliseconds(3));
        }
    });
    for (int round = 0; round < 40; ++round) {
        const auto failure = failureOf([&] { world.keep(disk); });
        EXPECT_TRUE(failure == "none" || failure == "filesKeptChanging") << failure;
    }
    isOver = true;
    writer.join();
    EXPECT_EQ(failureOf([&] { world.keep(disk); }), "none");
    world.tool.verify(world.files.latest, {});
}

/// Changes one byte of the file that holds "known contents".
void damageFileIn(const fs::path& image) {
    const auto place = readFile(image).find("known contents");
    ASSERT_NE(place, std::string::npos);
    const FileDescriptor file(open(image.c_str(), O_WRONLY | O_CLOEXEC));
    ASSERT_EQ(pwrite(file.get(), "K", 1, static_cast<off_t>(place)), 1);
}

TEST(SavedDisk, KeepsEveryCopyThatIsDamaged) {
    SKIP_UNLESS_ROOT();
    SavedAndPutBack world;
    for (const char* text : {"1", "2"}) {
        writeFile(world.tree / "text", std::string(5000, 'x') + "known contents");
        writeFile(world.tree / "other", text);
        world.keep(world.disk, 1);
    }
    for (const auto& copy : world.archiver.copies(world.files)) {
        damageFileIn(copy.image);
    }
    for (const auto& copy : world.archiver.copies(world.files)) {
        EXPECT_THAT(
            failureOf([&] {
                world.archiver.restore({copy.image, world.files, world.onto, {}, RestoreMode::replace}, {});
            }),
            HasSubstr("the copy is damaged"));
    }
    const auto entries = fs::directory_iterator(world.images);
    EXPECT_EQ(std::count_if(begin(entries), end(entries),
                            [](const auto& entry) {
                                return entry.path().string().find(".damaged-") != std::string::npos;
                            }),
              2)
        << "found within one second";
}

TEST(SavedDisk, IsNotPutBackWithDamageThatNobodyIsToldOf) {
    SKIP_UNLESS_ROOT();
    for (const bool hasEarlier : {true, false}) {
        SCOPED_TRACE(hasEarlier);
        SavedAndPutBack world;
        const auto& disk = world.disk;
        const auto& onto = world.onto;
        writeFile(world.tree / "text", std::string(5000, 'x') + "known contents");
        writeFile(world.tree / "other", "1");
        world.keep(disk, 1);
        writeFile(world.tree / "other", "2");
        world.keep(disk, hasEarlier ? 1 : 0);
        damageFileIn(world.files.latest);
        const auto damaged = readFile(world.files.latest);
        const auto failure = failureOf([&] {
            world.archiver.restore({world.files.latest, world.files, onto, {}, RestoreMode::fill}, {});
        });
        EXPECT_EQ(readFile(*onto.mountPoint / "tree/other"), "2");
        if (hasEarlier) {
            EXPECT_EQ(failure, "none");
            EXPECT_EQ(SavingMachine::difference(disk, onto), "");
        } else {
            EXPECT_THAT(failure, testing::HasSubstr("the copy is damaged: “tree/text” differs from"));
        }
        EXPECT_EQ(world.keep(disk), SaveOutcome::saved) << "the damaged one is no copy";
        world.tool.verify(world.files.latest, {});
        EXPECT_EQ(world.keep(disk), SaveOutcome::nothingChanged);
        const auto entries = fs::directory_iterator(world.images);
        EXPECT_EQ(std::count_if(begin(entries), end(entries),
                                [&](const auto& entry) {
                                    return entry.path().string().find(".damaged-") != std::string::npos
                                           && readFile(entry.path()) == damaged;
                                }),
                  1);
        world.archiver.remove(world.files);
        EXPECT_TRUE(fs::is_empty(world.images));
    }
}

TEST(SavedDisk, KeepsDatesThatItsImageCannotHold) {
    SKIP_UNLESS_ROOT();
    SavedAndPutBack world;
    for (const time_t seconds :
         {time_t{19880899200}, time_t{15032385535}, time_t{-3000000000}, time_t{-2147483648}}) {
        const auto file = world.tree / std::to_string(seconds);
        writeFile(file, "");
        const timespec times[] = {{0, 0}, {seconds, 500}};
        ASSERT_EQ(utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
    }
    EXPECT_EQ(world.keep(world.disk), SaveOutcome::saved) << "verified";
    EXPECT_EQ(world.keep(world.disk), SaveOutcome::nothingChanged);
    world.expectSame();
}

/// Gives an item attributes with names of 200 characters.
void addAttributes(const fs::path& item, int count, const std::string& value) {
    for (int number = 0; number < count; ++number) {
        const auto name = "user." + std::string(195, 'n') + std::to_string(number);
        ASSERT_EQ(setxattr(item.c_str(), name.c_str(), value.data(), value.size(), 0), 0);
    }
}

int flagsOf(const fs::path& item) {
    const FileDescriptor open(::open(item.c_str(), O_RDONLY | O_CLOEXEC));
    int flags = 0;
    EXPECT_EQ(ioctl(open.get(), FS_IOC_GETFLAGS, &flags), 0) << item;
    return flags & (FS_IMMUTABLE_FL | FS_APPEND_FL | FS_NODUMP_FL);
}

void setFlags(const fs::path& item, int wanted) {
    const FileDescriptor open(::open(item.c_str(), O_RDONLY | O_CLOEXEC));
    int flags = 0;
    ASSERT_EQ(ioctl(open.get(), FS_IOC_GETFLAGS, &flags), 0) << item;
    flags = (flags & ~(FS_IMMUTABLE_FL | FS_APPEND_FL | FS_NODUMP_FL)) | wanted;
    ASSERT_EQ(ioctl(open.get(), FS_IOC_SETFLAGS, &flags), 0) << item;
}

TEST(SavedDisk, KeepsFlagsAndIsReplacedAsAWholeInSpiteOfThem) {
    SKIP_UNLESS_ROOT();
    for (const char* format : {"hfs+", "jhfs+"}) {
        SCOPED_TRACE(format);
        SavedAndPutBack world(format);
        const auto& disk = world.disk;
        const auto& onto = world.onto;
        const auto& tree = world.tree;
        const std::pair<const char*, int> flagged[] = {
            {"sealed/inner", FS_IMMUTABLE_FL},           {"sealed", FS_IMMUTABLE_FL}, {"log", FS_APPEND_FL},
            {"log folder", FS_APPEND_FL | FS_NODUMP_FL}, {"unsaved", FS_NODUMP_FL},   {".", FS_IMMUTABLE_FL}};
        fs::create_directories(tree / "sealed");
        fs::create_directories(tree / "log folder");
        for (const char* name : {"sealed/inner", "log", "log folder/file", "unsaved"}) {
            writeFile(tree / name, std::string(5000, 'x') + name);
        }
        fs::create_hard_link(tree / "sealed/inner", tree / "second name");
        EXPECT_EQ(world.keep(disk), SaveOutcome::saved);
        for (const auto& [name, flags] : flagged) {
            setFlags(tree / name, flags);
        }
        EXPECT_EQ(world.keep(disk, 1), SaveOutcome::saved) << "flags are a change";
        EXPECT_EQ(world.keep(disk, 1), SaveOutcome::nothingChanged);
        world.expectSame();
        for (const auto& [name, flags] : flagged) {
            EXPECT_EQ(flagsOf(*onto.mountPoint / "tree" / name), flags) << name;
        }
        // What is not in the copy goes, and what is gets its place, whatever flags it had.
        setFlags(*onto.mountPoint / "tree", 0);
        fs::create_directories(*onto.mountPoint / "tree/more/below");
        for (const char* name : {"tree/more/below", "tree/more", "tree/unsaved", "tree"}) {
            setFlags(*onto.mountPoint / name, FS_IMMUTABLE_FL | FS_APPEND_FL);
        }
        const auto restore = [&](const fs::path& image) {
            world.archiver.restore({image, world.files, onto, {}, RestoreMode::replace}, {});
        };
        restore(world.files.latest);
        EXPECT_EQ(SavingMachine::difference(disk, onto), "");
        restore(world.archiver.copies(world.files).at(1).image);
        for (const auto& [name, flags] : flagged) {
            EXPECT_EQ(flagsOf(*onto.mountPoint / "tree" / name), 0) << name;
        }
        fs::remove(*onto.mountPoint / "tree/second name");
    }
}

TEST(SavedDisk, KeepsAttributesThatItsImageCannotHold) {
    SKIP_UNLESS_ROOT();
    SavedAndPutBack world;
    const auto& disk = world.disk;
    const auto& tree = world.tree;
    fs::create_directory(tree / "folder");
    for (const char* name : {"folder", "file", "few"}) {
        std::ofstream(tree / name) << name;
        addAttributes(tree / name, 100, "value");
    }
    fs::create_hard_link(tree / "file", tree / "second name");
    EXPECT_EQ(world.keep(disk), SaveOutcome::saved) << "verified";
    EXPECT_EQ(world.keep(disk), SaveOutcome::nothingChanged);
    for (int number = 1; number < 100; ++number) {
        const auto name = "user." + std::string(195, 'n') + std::to_string(number);
        ASSERT_EQ(removexattr((tree / "few").c_str(), name.c_str()), 0);
    }
    addAttributes(tree / "file", 150, std::string(3000, 'v'));
    EXPECT_EQ(world.keep(disk), SaveOutcome::saved) << "in an image that held others";
    world.expectSame();
}

TEST(SavedDisk, KeepsTheRestOfWhatNoImageCanHold) {
    SKIP_UNLESS_ROOT();
    struct Row {
        const char* name;
        std::function<void(const fs::path&)> make;
    };
    const Row rows[] = {
        {"tree/big",
         [](const fs::path& tree) { ASSERT_EQ(truncate((tree / "big").c_str(), off_t{20} << 40), 0); }},
        {"tree/names",
         [](const fs::path& tree) {
             fs::create_directory(tree / "names");
             for (int number = 0; number < 65001; ++number) {
                 ASSERT_EQ(link((tree / "big").c_str(), (tree / "names" / std::to_string(number)).c_str()),
                           0);
             }
         }},
        {"tree/big", [](const fs::path& tree) { addAttributes(tree / "big", 400, "too many to list"); }}};
    for (const auto& row : rows) {
        const bool hasAttributes = &row == std::end(rows) - 1;
        for (const bool wasSaved : {false, true}) {
            if (wasSaved && row.name[5] == 'n') {
                continue;
            }
            SCOPED_TRACE(std::string(row.name) + (wasSaved ? ", saved before" : ""));
            SavedAndPutBack world("hfs+", "160M");
            const auto& disk = world.disk;
            const auto& onto = world.onto;
            const auto& tree = world.tree;
            writeFile(tree / "rest", "precious");
            if (wasSaved) {
                writeFile(tree / "big", "small");
                addAttributes(tree / "big", 1, "kept");
                world.keep(disk);
            }
            writeFile(tree / "big", "small");
            writeFile(tree / "rest", "newer");
            row.make(tree);
            const bool isLost = wasSaved && std::string_view(row.name) == "tree/big";
            for (int time = 0; time < 2; ++time) {
                const auto failure = failureOf([&] { world.keep(disk); });
                EXPECT_THAT(failure, HasSubstr(isLost ? "and the latest copy holds it as it was" : row.name));
                EXPECT_EQ(
                    failure.find(hasAttributes ? "Everything else is saved." : "All other files are saved.")
                        == std::string::npos,
                    isLost);
            }
            world.restore(onto);
            EXPECT_EQ(readFile(*onto.mountPoint / "tree/rest"), isLost ? "precious" : "newer");
            EXPECT_EQ(fs::exists(*onto.mountPoint / "tree/big"),
                      isLost || hasAttributes || row.name[5] == 'n');
            if (hasAttributes) {
                world.archiver.restore({world.files.latest, world.files, disk, {}, RestoreMode::replace}, {});
                EXPECT_EQ(SavingMachine::difference(disk, onto), "") << "put back over what none can list";
            }
        }
    }
}

TEST(SavedDisk, KeepsWhatAMountHides) {
    SKIP_UNLESS_ROOT();
    for (const char* format : {"hfs+", "jhfs+"}) {
        SCOPED_TRACE(format);
        SavedAndPutBack world(format);
        const auto hidden = world.tree / "covered";
        fs::create_directory(hidden);
        writeFile(hidden / "file", "hidden");
        ASSERT_EQ(mount("cover", hidden.c_str(), "tmpfs", 0, nullptr), 0);
        writeFile(hidden / "of the cover", "");
        world.save(world.disk);
        EXPECT_EQ(umount2(hidden.c_str(), MNT_DETACH), 0);
        world.expectSame();
    }
}

} // namespace
} // namespace ramdisk::test
