#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskCore/Values/VolumeMark.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/Linux/Disks/TreeFolderCopier.h"
#include "tests/support/Linux/TestMachine.h"
#include "tests/support/Linux/TestMount.h"
#include "tests/support/Linux/TreeDescription.h"

namespace ramdisk::test {
namespace {

struct Trees {
    Trees() {
        fs::create_directory(source);
        fs::create_directory(target);
    }
    ScratchFolder scratch;
    fs::path source = scratch.path() / "source";
    fs::path target = scratch.path() / "target";
};

struct stat statusOf(const fs::path& path) {
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return status;
}

struct Change {
    const char* what;
    std::function<void(const fs::path&)> make;
    /// What the manifests must tell.
    const char* difference;
};

const std::vector<Change> changes{
    {"contents, with the dates put back", [](const auto& root) { overwrite(root / "big", 2'000'001, "new"); },
     "big: contents differ"},
    {"contents, through a shared mapping alone",
     [](const auto& root) {
         const FileDescriptor file(open((root / "big").c_str(), O_RDWR));
         void* const bytes = mmap(nullptr, 1 << 20, PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0);
         static_cast<char*>(bytes)[777] = '!';
         munmap(bytes, 1 << 20);
     },
     "big: contents differ"},
    {"a file shrinks", [](const auto& root) { fs::resize_file(root / "big", 3'000'123); },
     "big: sizes differ"},
    {"a file grows by a hole", [](const auto& root) { fs::resize_file(root / "big", 3'900'456); },
     "big: sizes differ"},
    {"a hole is punched",
     [](const auto& root) {
         const FileDescriptor file(open((root / "big").c_str(), O_RDWR));
         fallocate(file.get(), FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, 4096, 300 << 10);
     },
     "big: contents differ"},
    {"data comes into a hole", [](const auto& root) { overwrite(root / "sparse", 1LL << 35, "data"); },
     "sparse: contents differ"},
    {"a file becomes a folder",
     [](const auto& root) {
         fs::remove(root / "folder/empty");
         fs::create_directories(root / "folder/empty/with/folders");
         writeFile(root / "folder/empty/with/file", "text");
     },
     "folder/empty: kinds differ"},
    {"a folder becomes a link",
     [](const auto& root) {
         fs::remove_all(root / "folder/empty");
         fs::create_symlink("file", root / "folder/empty");
     },
     "folder/empty: kinds differ"},
    {"a link leads elsewhere",
     [](const auto& root) {
         fs::remove(root / "folder/empty");
         fs::create_symlink("felt", root / "folder/empty");
     },
     "folder/empty: link targets differ"},
    {"a name leaves its group",
     [](const auto& root) {
         fs::remove(root / "other/third");
         writeFile(root / "other/third", "of one file");
     },
     "other/third: hard links differ"},
    {"a name joins another group, and the first name goes",
     [](const auto& root) {
         fs::remove(root / "a name that sorts before");
         fs::remove(root / "folder/sub/first name");
         fs::create_hard_link(root / "other/third", root / "folder/sub/first name");
         fs::create_hard_link(root / "other/third", root / "0");
     },
     "0: is missing"},
    {"two groups swap their contents",
     [](const auto& root) {
         fs::rename(root / "script", root / "swap");
         fs::rename(root / "other/third", root / "script");
         fs::rename(root / "swap", root / "other/third");
     },
     "script: hard links differ"},
    {"an attribute goes", [](const auto& root) { lremovexattr((root / "folder").c_str(), "user.long"); },
     "folder: extended attributes differ"},
    {"a list of rights goes",
     [](const auto& root) { lremovexattr((root / "other").c_str(), "system.posix_acl_default"); },
     "other: extended attributes differ"},
    {"a mode", [](const auto& root) { chmod((root / "sealed").c_str(), 0); }, "sealed: modes differ"},
    {"only letter case", [](const auto& root) { fs::rename(root / "folder/file", root / "folder/FILE"); },
     "folder/FILE: is missing"},
    {"a whole folder goes", [](const auto& root) { fs::remove_all(root / "folder"); },
     "folder: is not expected"},
};

TEST(TreeUpdateTest, AnOddTreeIsCopiedAndEveryChangeIsSeenAndFollowed) {
    const Trees trees;
    makeOddTree(trees.source);
    const auto before = describeTree(trees.source);
    updateTree(trees.source, trees.target);
    EXPECT_EQ(describeTree(trees.source), before);
    ASSERT_EQ(differences(trees.source, trees.target), "");
    EXPECT_LT(statusOf(trees.target / "sparse").st_blocks * 512, 1 << 20);
    const auto big = statusOf(trees.target / "big");
    for (const auto& change : changes) {
        SCOPED_TRACE(change.what);
        change.make(trees.source);
        const auto told = scanTree(trees.source).firstDifference(scanTree(trees.target));
        ASSERT_TRUE(told);
        EXPECT_EQ(*told, change.difference);
        updateTree(trees.source, trees.target);
        ASSERT_EQ(differences(trees.source, trees.target), "");
        EXPECT_EQ(scanTree(trees.source).firstDifference(scanTree(trees.target)), std::nullopt);
    }
    // All the while only changed pages were written, never the file anew.
    const auto after = statusOf(trees.target / "big");
    EXPECT_EQ(after.st_ino, big.st_ino);
    EXPECT_LT(after.st_blocks, big.st_blocks);
}

TEST(TreeUpdateTest, SmallFilesThatAreWrittenAnewAreNotComparedForLong) {
    constexpr int count = 60;
    constexpr std::size_t size = 50'000;
    const Trees trees;
    const auto file = [](int number) { return std::to_string(number); };
    const auto changeAll = [&](const auto& change) {
        for (int number = 0; number < count; ++number) {
            change(trees.source / file(number));
        }
    };
    changeAll([](const auto& path) { writeFile(path, std::string(size, 'a')); });
    updateTree(trees.source, trees.target);
    changeAll([](const auto& path) { writeFile(path, std::string(size, 'b')); });
    // What lies in one block with a hole keeps the hole.
    fs::remove(trees.source / file(count - 1));
    writeFile(trees.source / file(count - 1), "");
    fs::resize_file(trees.source / file(count - 1), size);
    overwrite(trees.source / file(count - 1), 30'000, "data");
    {
        const auto source = scanTree(trees.source);
        const auto target = scanTree(trees.target);
        const auto before = bytesReadSoFar();
        TreeUpdate{openTree(trees.source), source, openTree(trees.target), target}.perform({});
        EXPECT_LT(bytesReadSoFar() - before, count * size * 3 / 2);
    }
    EXPECT_EQ(differences(trees.source, trees.target), "");
    EXPECT_LT(statusOf(trees.target / file(count - 1)).st_blocks * 512, 10'000);

    changeAll([](const auto& path) { overwrite(path, 20'000, "a few bytes"); });
    updateTree(trees.source, trees.target);
    EXPECT_EQ(differences(trees.source, trees.target), "");
}

constexpr off_t mebibyte = 1 << 20;

std::string bytes(std::size_t count, char first) {
    std::string text(count, first);
    for (std::size_t place = 0; place < count; place += 1000) {
        text[place] = static_cast<char>(first + place / 1000 % 20);
    }
    return text;
}

void followALargeFile(const Trees& trees, PageCache pageCache, HugePages hugePages) {
    const auto file = trees.source / "large";
    writeFile(file, bytes(3 * mebibyte, 'a'));
    fs::resize_file(file, 70 * mebibyte + 12'345);
    overwrite(file, 31 * mebibyte + 5, bytes(2 * mebibyte, 'b'));
    overwrite(file, 40 * mebibyte, bytes(5 * mebibyte + 77, 'g'));
    overwrite(file, 70 * mebibyte, bytes(12'345, 'c'));
    std::optional<ino_t> inode;
    const std::vector<std::pair<const char*, std::function<void()>>> steps{
        {"made", [] {}},
        {"a few bytes on both sides of a border", [&] { overwrite(file, 32 * mebibyte - 2, "four"); }},
        {"block after block", [&] { overwrite(file, 3'000, bytes(3 * mebibyte - 6'000, 'd')); }},
        {"data in a hole", [&] { overwrite(file, 65 * mebibyte + 77, bytes(3 * mebibyte, 'e')); }},
        {"zeros over data", [&] { overwrite(file, 0, std::string(2 * mebibyte, '\0')); }},
        {"grown", [&] { overwrite(file, 99 * mebibyte, bytes(54'321, 'f')); }},
        {"shrunk within a block", [&] { fs::resize_file(file, 65 * mebibyte + 99); }},
        {"shrunk to a small file", [&] { fs::resize_file(file, mebibyte + 1); }},
        {"large again", [&] { overwrite(file, 33 * mebibyte, "end"); }},
    };
    for (const auto& [what, change] : steps) {
        SCOPED_TRACE(what);
        change();
        updateTree(trees.source, trees.target, Extras::remove, pageCache, hugePages);
        ASSERT_EQ(differences(trees.source, trees.target), "");
        const auto status = statusOf(trees.target / "large");
        EXPECT_EQ(inode.value_or(status.st_ino), status.st_ino) << "written anew";
        inode = status.st_ino;
        EXPECT_LT(status.st_blocks * 512, 17 * mebibyte) << "the holes are filled";
    }
}

TEST(TreeUpdateTest, ALargeFileIsFollowedPartByPart) {
    const Trees trees;
    followALargeFile(trees, PageCache::use, HugePages::none);
    const auto file = trees.source / "large";
    const auto other = trees.target / "large";
    const auto source = scanTree(trees.source);
    fs::remove(file);
    fs::remove(other);
    TreeUpdate{openTree(trees.source), source, openTree(trees.target), scanTree(trees.target)}.perform({});
    EXPECT_FALSE(fs::exists(other)) << "the file was gone when its turn came";
}

TEST(TreeUpdateTest, ALargeFileIsReadIntoHugePages) {
    SKIP_UNLESS_ROOT();
    const TestMachine machine;
    const Trees trees;
    const bool areThere = fs::exists("/sys/kernel/mm/transparent_hugepage/shmem_enabled");
    const TmpfsMount target(trees.target, areThere ? "huge=advise,size=80m" : "size=80m");
    followALargeFile(trees, PageCache::bypass, HugePages::onRequest);
    fs::remove(trees.target / "large");
    writeFile(trees.source / "large", bytes(90 * mebibyte, 'h'));
    try {
        updateTree(trees.source, trees.target, Extras::remove, PageCache::bypass, HugePages::onRequest);
        FAIL() << "there was room";
    } catch (const SystemCallError& error) {
        EXPECT_STREQ(error.what(), "could not write “large”: No space left on device");
    }
}

TEST(TreeUpdateTest, TheMarkOfAVolumeNeitherComesNorGoes) {
    const Trees trees;
    const auto mark = std::string("user.") + VolumeMark::attribute;
    setAttribute(trees.source, mark, "the source's");
    setAttribute(trees.target, mark, "the target's");
    setAttribute(trees.source, "user.other", "value");
    updateTree(trees.source, trees.target);
    EXPECT_EQ(scanTree(trees.source).firstDifference(scanTree(trees.target)), std::nullopt);
    char value[64] = {};
    getxattr(trees.target.c_str(), mark.c_str(), value, sizeof value);
    EXPECT_STREQ(value, "the target's");
}

TEST(TreeUpdateTest, ExtrasThatAreKeptAreNeverWrittenThrough) {
    const Trees trees;
    writeFile(trees.target / "kept", "mine");
    fs::create_hard_link(trees.target / "kept", trees.target / "shared");
    fs::create_symlink("kept", trees.target / "link");
    writeFile(trees.source / "shared", "new");
    writeFile(trees.source / "link", "a file now");
    updateTree(trees.source, trees.target, Extras::keep);
    EXPECT_EQ(readFile(trees.target / "kept"), "mine");
    EXPECT_EQ(readFile(trees.target / "shared"), "new");
    EXPECT_EQ(readFile(trees.target / "link"), "a file now");
    EXPECT_FALSE(fs::is_symlink(trees.target / "link"));
}

TEST(TreeUpdateTest, SealedFoldersOfAnOrdinaryUserAreCopiedAndChanged) {
    SKIP_UNLESS_ROOT();
    const Trees trees;
    for (const auto& folder : {trees.scratch.path(), trees.source, trees.target}) {
        ASSERT_EQ(chown(folder.c_str(), nobody, nobody), 0);
    }
    EXPECT_EQ(inChild(nobody,
                      [&] {
                          makeOddTree(trees.source);
                          updateTree(trees.source, trees.target);
                          for (const auto* text : {"one", "another"}) {
                              chmod((trees.source / "sealed").c_str(), 0700);
                              writeFile(trees.source / "sealed/file", text);
                              chmod((trees.source / "sealed/file").c_str(), 0400);
                              fs::create_directory(trees.source / "sealed" / text);
                              chmod((trees.source / "sealed" / text).c_str(), 0500);
                              chmod((trees.source / "sealed").c_str(), 0500);
                              chmod((trees.source / "sealed/file").c_str(), 0600);
                              chmod((trees.source / "sealed/file").c_str(), 0400);
                              updateTree(trees.source, trees.target);
                              if (!differences(trees.source, trees.target).empty()) {
                                  return 1;
                              }
                              chmod((trees.source / "sealed/file").c_str(), 0600);
                          }
                          return 0;
                      }),
              0);
}

TEST(TreeFolderCopierTest, ASeedFillsTheVolumeAndLeavesItsRootAlone) {
    const Trees trees;
    makeOddTree(trees.source);
    writeFile(trees.target / "there before", "text");
    ASSERT_EQ(chmod(trees.target.c_str(), 0701), 0);
    TreeFolderCopier().copy(trees.source, trees.target);
    EXPECT_EQ(statusOf(trees.target).st_mode & 07777U, 0701U);
    EXPECT_EQ(readFile(trees.target / "there before"), "text");
    auto expected = describeTree(trees.source);
    auto got = describeTree(trees.target);
    got.erase("there before");
    expected["."] = got["."];
    EXPECT_EQ(got, expected);
}

TEST(TreeFolderCopierTest, AFailureTellsWhichItemAndWhy) {
    const Trees trees;
    fs::create_directories(trees.target / "folder/file/in the way");
    fs::create_directories(trees.source / "folder");
    writeFile(trees.source / "folder/file", "");
    const auto reason = [&](const fs::path& seed) {
        try {
            TreeFolderCopier().copy(seed, trees.target);
        } catch (const RamDiskError& error) {
            return std::get<RamDiskError::ContentsTransferFailed>(error.value()).reason;
        }
        return std::string();
    };
    EXPECT_EQ(reason(trees.source),
              "could not put a file in the place of the folder “folder/file”: Is a directory");
    EXPECT_EQ(reason("/nowhere at all"), "could not open “/nowhere at all”: No such file or directory");
}

} // namespace
} // namespace ramdisk::test
