#include "RamDiskInfrastructure/Trees/WriteWatch.h"

#include "tests/support/Linux/TestMachine.h"
#include "tests/support/Linux/TestMount.h"
#include "tests/support/Linux/TreeDescription.h"

namespace ramdisk::test {
namespace {

constexpr std::size_t watchedFileSize = 100'000;
constexpr int watchedFileCount = 20;

/// A tmpfs with some files that were made just now, watched and scanned once.
struct WatchedTree {
    WatchedTree() {
        fs::create_directories(tree / "sub");
        fs::create_directory(tree / "odd");
        for (int file = 0; file < watchedFileCount; ++file) {
            writeFile(tree / "sub" / std::to_string(file), std::string(watchedFileSize, 'x'));
        }
        writeFile(place / "aside", std::string(watchedFileSize, 'y'));
        setAttribute(tree / "sub/7", "user.one", "value");
        makeOddTree(tree / "odd");
    }

    /// False where the kernel has no watch to offer.
    bool scan() {
        root = openTree(tree);
        watch = WriteWatch::begin(root);
        if (!watch) {
            return false;
        }
        first = TreeManifest::scan(*watch, {});
        EXPECT_EQ(first.firstDifference(TreeManifest::scan(watch->root(), {})), std::nullopt);
        return true;
    }

    /// How the tree differs from the first scan, and how many bytes were read to find out.
    std::string scanAgain(std::uint64_t& bytesRead) {
        const auto before = bytesReadSoFar();
        auto again = TreeManifest::scanAgain(*watch, first, {});
        bytesRead = bytesReadSoFar() - before;
        EXPECT_EQ(again.firstDifference(TreeManifest::scan(watch->root(), {})), std::nullopt);
        const auto difference = again.firstDifference(first);
        first = std::move(again);
        return difference.value_or("");
    }

    TestMachine machine;
    fs::path place = machine.folder() / "watched";
    TmpfsMount mounted{place, "size=16m"};
    fs::path tree = place / "tree";
    FileDescriptor root;
    std::optional<WriteWatch> watch;
    TreeManifest first;
};

/// A shared mapping of a file, whose descriptor is closed.
class SharedMapping {
public:
    void make(const fs::path& path) {
        const FileDescriptor file(open(path.c_str(), O_RDWR | O_CLOEXEC));
        bytes_ = mmap(nullptr, watchedFileSize, PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0);
        ASSERT_NE(bytes_, MAP_FAILED);
        // The first access makes the page writable: from then on no date tells of what is written.
        EXPECT_NE(static_cast<volatile char*>(bytes_)[watchedFileSize / 2], 0);
    }
    void write() const { static_cast<char*>(bytes_)[watchedFileSize / 2] = 'm'; }
    void end() { munmap(std::exchange(bytes_, MAP_FAILED), watchedFileSize); }
    ~SharedMapping() { bytes_ == MAP_FAILED ? 0 : munmap(bytes_, watchedFileSize); }

private:
    void* bytes_ = MAP_FAILED;
};

fs::path overlayOf(const fs::path& upper) {
    return upper / "../../overlay";
}

/// Nothing where the kernel has no overlays.
void mountOverlay(const fs::path& upper) {
    const auto place = upper / "../..";
    for (const char* name : {"lower", "work", "overlay"}) {
        fs::create_directory(place / name);
    }
    const auto options =
        fmt::format("lowerdir={0}/lower,upperdir={1},workdir={0}/work", place.native(), upper.native());
    mount("overlay", overlayOf(upper).c_str(), "overlay", 0, options.c_str());
}

struct ChangeBetweenScans {
    const char* what;
    std::function<void(const fs::path& file, SharedMapping&)> beforeFirstScan;
    std::function<void(const fs::path& file, SharedMapping&)> afterwards;
    const char* difference = "sub/7: contents differ";
};

const std::function<void(const fs::path&, SharedMapping&)> noPreparation = [](const auto&, auto&) {};

const std::vector<ChangeBetweenScans> changesBetweenScans{
    {"mapped before and still", [](const auto& file, auto& mapping) { mapping.make(file); },
     [](const auto&, auto& mapping) { mapping.write(); }},
    {"mapped before and no more", [](const auto& file, auto& mapping) { mapping.make(file); },
     [](const auto&, auto& mapping) {
         mapping.write();
         mapping.end();
     }},
    {"mapped afterwards and still", noPreparation,
     [](const auto& file, auto& mapping) {
         mapping.make(file);
         mapping.write();
     }},
    {"mapped afterwards and no more", noPreparation,
     [](const auto& file, auto& mapping) {
         mapping.make(file);
         mapping.write();
         mapping.end();
     }},
    {"mapped by a child that has ended", noPreparation,
     [](const auto& file, auto& mapping) {
         EXPECT_EQ(inChild(0,
                           [&] {
                               mapping.make(file);
                               mapping.write();
                               return 0;
                           }),
                   0);
     }},
    {"mapped by way of an overlay", [](const auto& file, auto&) { mountOverlay(file.parent_path()); },
     [](const auto& file, auto& mapping) {
         const auto overlay = overlayOf(file.parent_path());
         const auto same = overlay / file.filename();
         mapping.make(fs::exists(same) ? same : file);
         mapping.write();
         umount2(overlay.c_str(), MNT_DETACH);
     }},
    {"written, with the dates put back", noPreparation,
     [](const auto& file, auto&) { overwrite(file, 5, "new"); }},
    {"cut short and back", noPreparation,
     [](const auto& file, auto&) {
         EXPECT_EQ(truncate(file.c_str(), 1), 0);
         EXPECT_EQ(truncate(file.c_str(), watchedFileSize), 0);
     }},
    {"made longer by its path", noPreparation,
     [](const auto& file, auto&) { EXPECT_EQ(truncate(file.c_str(), watchedFileSize + 1), 0); },
     "sub/7: sizes differ"},
    {"another mode", noPreparation, [](const auto& file, auto&) { EXPECT_EQ(chmod(file.c_str(), 0604), 0); },
     "sub/7: modes differ"},
    {"another owner", noPreparation,
     [](const auto& file, auto&) { EXPECT_EQ(chown(file.c_str(), nobody, nobody), 0); },
     "sub/7: owners differ"},
    {"another modification time alone", noPreparation,
     [](const auto& file, auto&) {
         const timespec times[2] = {{0, UTIME_OMIT}, {1, 0}};
         EXPECT_EQ(utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
     },
     "sub/7: modification times differ"},
    {"another name", noPreparation,
     [](const auto& file, auto&) { fs::create_hard_link(file, file.parent_path() / "70"); },
     "sub/70: is missing"},
    {"another file in its place", noPreparation,
     [](const auto& file, auto&) { fs::rename(file.parent_path() / "../../aside", file); }},
    {"exchanged with another file", noPreparation,
     [](const auto& file, auto&) {
         const auto aside = file.parent_path() / "../../aside";
         EXPECT_EQ(renameat2(AT_FDCWD, aside.c_str(), AT_FDCWD, file.c_str(), RENAME_EXCHANGE), 0);
     }},
    {"an attribute added", noPreparation,
     [](const auto& file, auto&) { setAttribute(file, "user.two", "value"); },
     "sub/7: extended attributes differ"},
    {"an attribute changed", noPreparation,
     [](const auto& file, auto&) { setAttribute(file, "user.one", "other"); },
     "sub/7: extended attributes differ"},
};

TEST(WriteWatchTest, EveryChangeIsSeenAndNothingElseRead) {
    SKIP_UNLESS_ROOT();
    for (const auto& change : changesBetweenScans) {
        SCOPED_TRACE(change.what);
        WatchedTree watched;
        SharedMapping mapping;
        const auto file = watched.tree / "sub/7";
        change.beforeFirstScan(file, mapping);
        if (!watched.scan()) {
            GTEST_SKIP() << "this kernel offers no watch";
        }
        std::uint64_t bytesRead = 0;
        EXPECT_EQ(watched.scanAgain(bytesRead), "");
        EXPECT_LT(bytesRead, 2 * watchedFileSize);
        change.afterwards(file, mapping);
        EXPECT_EQ(watched.scanAgain(bytesRead), change.difference);
        EXPECT_GE(bytesRead, watchedFileSize);
        EXPECT_LT(bytesRead, 2 * watchedFileSize);
    }
}

TEST(WriteWatchTest, OnlyAWatchOfWhichNothingWasLostSparesTheReading) {
    SKIP_UNLESS_ROOT();
    WatchedTree watched;
    if (!watched.scan()) {
        GTEST_SKIP() << "this kernel offers no watch";
    }
    std::uint64_t bytesRead = 0;
    EXPECT_EQ(watched.scanAgain(bytesRead), "");
    EXPECT_LT(bytesRead, watchedFileSize);
    EXPECT_THAT(watched.watch->touchedByOthers(), testing::Pointee(testing::IsEmpty()));
    // More than the kernel keeps; nothing of it is left in the tree.
    for (int file = 0; file < 20'000; ++file) {
        FileDescriptor(
            open((watched.place / std::to_string(file)).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    }
    EXPECT_EQ(watched.scanAgain(bytesRead), "");
    EXPECT_GE(bytesRead, watchedFileCount * watchedFileSize);
    EXPECT_EQ(watched.watch->touchedByOthers(), nullptr);
}

TEST(WriteWatchTest, IsAbsentWhereItCannotBeHad) {
    SKIP_UNLESS_ROOT();
    EXPECT_FALSE(WriteWatch::begin(openTree("/proc")));
    EXPECT_EQ(inChild(nobody, [] { return WriteWatch::begin(openTree("/dev/shm")) ? 1 : 0; }), 0);
}

} // namespace
} // namespace ramdisk::test
