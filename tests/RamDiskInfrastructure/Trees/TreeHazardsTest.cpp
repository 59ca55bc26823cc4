#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/Trees/TreeContents.h"
#include "tests/support/Linux/TestMachine.h"
#include "tests/support/Linux/TestMount.h"
#include "tests/support/Linux/TreeDescription.h"

#define XXH_INLINE_ALL
#include <xxhash.h>

#include <sys/socket.h>
#include <sys/un.h>

namespace ramdisk::test {
namespace {

/// Does something over and over on another thread until it goes away.
class Meanwhile {
public:
    explicit Meanwhile(std::function<void()> disturb)
        : thread_([this, disturb = std::move(disturb)] {
              while (!stop_) {
                  disturb();
              }
          }) {}
    Meanwhile(const Meanwhile&) = delete;
    Meanwhile& operator=(const Meanwhile&) = delete;
    ~Meanwhile() {
        stop_ = true;
        thread_.join();
    }

private:
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

TEST(TreeScanTest, ItemsThatComeAndGoAreNoError) {
    const ScratchFolder scratch;
    const auto root = scratch.path() / "tree";
    const auto copy = scratch.path() / "copy";
    fs::create_directories(root / "a");
    fs::create_directory(copy);
    writeFile(root / "a/stays", "text");
    const Meanwhile disturbance([&] {
        std::error_code ignored;
        fs::create_directories(root / "a/folder/sub", ignored);
        writeFile(root / "a/folder/sub/file", "some text");
        fs::create_hard_link(root / "a/folder/sub/file", root / "name", ignored);
        fs::create_symlink("x", root / "a/link", ignored);
        fs::rename(root / "a/folder", root / "b", ignored);
        fs::remove_all(root / "b", ignored);
        fs::remove(root / "a/link", ignored);
        fs::remove(root / "name", ignored);
    });
    for (int round = 0; round < 300; ++round) {
        updateTree(root, copy);
        ASSERT_EQ(readFile(copy / "a/stays"), "text");
    }
}

TEST(TreeScanTest, WhatVanishedSinceTheScanIsLeftOut) {
    const ScratchFolder scratch;
    const auto root = scratch.path() / "tree";
    const auto copy = scratch.path() / "copy";
    fs::create_directories(root / "folder/sub");
    fs::create_directory(copy);
    writeFile(root / "folder/sub/file", "text");
    fs::create_symlink("x", root / "folder/sub/link");
    writeFile(root / "gone", "text");
    fs::create_hard_link(root / "gone", root / "gone too");
    writeFile(root / "stays", "text");
    const auto manifest = scanTree(root);
    fs::remove_all(root / "folder");
    fs::remove(root / "gone");
    fs::remove(root / "gone too");
    TreeUpdate{openTree(root), manifest, openTree(copy), TreeManifest()}.perform({});
    EXPECT_EQ(fs::directory_iterator(copy)->path().filename(), "stays");
    EXPECT_EQ(std::distance(fs::directory_iterator(copy), {}), 1);
}

TEST(TreeScanTest, SeveralThreadsFindTheSameTreeEachTime) {
    const ScratchFolder scratch;
    const auto root = scratch.path() / "tree";
    fs::create_directory(root);
    for (int number = 0; number < 1500; ++number) {
        const auto name = std::to_string(number * 7919 % 1500);
        const auto folder =
            number % 3 == 0 ? root : root / ("folder " + std::to_string(number % 7)) / "below";
        fs::create_directories(folder);
        writeFile(folder / name, number % 2 == 0 ? "" : name);
        if (number % 5 == 0) {
            fs::create_hard_link(folder / name, root / ("name of " + name));
            fs::create_symlink("to " + name, folder / ("link " + name));
            setAttribute(folder / name, "user.number", name);
            setAttribute(folder, "user.last", name);
        }
    }
    const FileDescriptor file(open((scratch.path() / "file").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    // The first look at a link sets the time of its last access.
    static_cast<void>(scanTree(root));
    scanTree(root).write(file);
    const auto first = scratch.read("file");
    // Reading checks the order of the items.
    EXPECT_TRUE(TreeManifest::read(file));
    for (int round = 0; round < 20; ++round) {
        scanTree(root).write(file);
        ASSERT_TRUE(scratch.read("file") == first);
    }
    fs::create_directory(scratch.path() / "copy");
    updateTree(root, scratch.path() / "copy");
    EXPECT_EQ(differences(root, scratch.path() / "copy"), "");
}

TEST(TreeScanTest, PathsMayBeLongerThanAnyCallTakes) {
    const ScratchFolder scratch;
    fs::create_directory(scratch.path() / "tree");
    fs::create_directory(scratch.path() / "copy");
    const std::string name(200, 'd');
    auto folder = openTree(scratch.path() / "tree");
    constexpr std::uint64_t depth = 400;
    for (std::uint64_t level = 0; level < depth; ++level) {
        ASSERT_EQ(mkdirat(folder.get(), name.c_str(), 0755), 0);
        folder = FileDescriptor(openat(folder.get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        ASSERT_TRUE(FileDescriptor(openat(folder.get(), "f", O_CREAT | O_WRONLY | O_CLOEXEC, 0600)));
    }
    updateTree(scratch.path() / "tree", scratch.path() / "copy");
    const auto copied = scanTree(scratch.path() / "copy");
    EXPECT_EQ(copied.itemCount(), 2 * depth);
    EXPECT_EQ(scanTree(scratch.path() / "tree").firstDifference(copied), std::nullopt);
    // The library's own removal opens every level at once.
    fs::create_directory(scratch.path() / "nothing");
    updateTree(scratch.path() / "nothing", scratch.path() / "copy");
    updateTree(scratch.path() / "nothing", scratch.path() / "tree");
    EXPECT_TRUE(fs::is_empty(scratch.path() / "tree"));
    EXPECT_TRUE(fs::is_empty(scratch.path() / "copy"));
}

TEST(TreeUpdateHazardsTest, AFullTargetNamesTheFileAndOtherMountsAreLeftAlone) {
    SKIP_UNLESS_ROOT();
    const TestMachine machine;
    const auto source = machine.folder() / "source";
    const auto tiny = machine.folder() / "tiny";
    const TmpfsMount target(tiny, "size=64k");
    const TmpfsMount below(source / "folder/mount", "size=64k");
    writeFile(source / "folder/mount/file", "of another volume");
    const FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{AF_UNIX, {}};
    (source / "socket").string().copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    updateTree(source, tiny);
    EXPECT_TRUE(fs::is_empty(tiny / "folder/mount"));
    EXPECT_FALSE(fs::exists(tiny / "socket"));
    writeFile(source / "folder/large", std::string(100'000, 'x'));
    try {
        updateTree(source, tiny);
        FAIL() << "there was room";
    } catch (const SystemCallError& error) {
        EXPECT_EQ(error.code().value(), ENOSPC);
        EXPECT_STREQ(error.what(), "could not write “folder/large”: No space left on device");
    }
}

TEST(TreeUpdateHazardsTest, NothingIsWrittenThroughALinkThatReplacesAFolder) {
    const ScratchFolder scratch;
    const auto source = scratch.path() / "source";
    const auto target = scratch.path() / "target";
    const auto outside = scratch.path() / "outside";
    fs::create_directories(source / "folder");
    fs::create_directories(target);
    fs::create_directories(outside);
    writeFile(outside / "file 1", "outside");
    for (int file = 0; file < 20; ++file) {
        writeFile(source / "folder" / ("file " + std::to_string(file)), "inside");
    }
    const auto before = describeTree(outside);
    int failures = 0;
    {
        const Meanwhile swapping([&] {
            std::error_code ignored;
            fs::rename(target / "folder", target / "aside", ignored);
            fs::create_symlink(outside, target / "folder", ignored);
            std::this_thread::yield();
            if (fs::is_symlink(target / "folder", ignored)) {
                fs::remove(target / "folder", ignored);
            }
            fs::rename(target / "aside", target / "folder", ignored);
        });
        for (int round = 0; round < 400; ++round) {
            overwrite(source / "folder/file 1", 0, std::to_string(round));
            try {
                updateTree(source, target);
            } catch (const std::exception&) {
                ++failures;
            }
        }
    }
    EXPECT_EQ(describeTree(outside), before);
    RecordProperty("failures", failures);
    updateTree(source, target);
    EXPECT_EQ(differences(source, target), "");
}

TEST(TreeUpdateHazardsTest, ANameThatTheTargetHasAlreadyIsTwoNamesMerged) {
    const ScratchFolder scratch;
    fs::create_directory(scratch.path() / "target");
    for (const bool isFolder : {false, true}) {
        const auto source = scratch.path() / (isFolder ? "folders" : "files");
        fs::create_directory(source);
        isFolder ? void(fs::create_directory(source / "Name")) : writeFile(source / "Name", "");
        writeFile(scratch.path() / "target/Name", "");
        try {
            TreeUpdate{openTree(source), scanTree(source), openTree(scratch.path() / "target"),
                       TreeManifest()}
                .perform({});
            FAIL();
        } catch (const RamDiskError& error) {
            EXPECT_EQ(error.caseName(), "namesMerged");
        }
    }
}

TEST(TreeManifestTest, TellsNamesThatAVolumeTakesForOneAnother) {
    const std::vector<std::tuple<std::string, std::string, bool>> rows{
        {"README", "Readme", true},  {"resume", "résumé", false}, {"\u00e9", "e\u0301", true},
        {"STRASSE", "straße", true}, {"a", "a ", false},          {"\xff", "\xfe", false}};
    for (const auto& [one, other, isClash] : rows) {
        SCOPED_TRACE(one);
        const ScratchFolder scratch;
        fs::create_directories(scratch.path() / "tree/folder/A");
        writeFile(scratch.path() / "tree/folder/A" / one, "");
        writeFile(scratch.path() / "tree" / other, "");
        EXPECT_FALSE(scanTree(scratch.path()).firstNameClash());
        writeFile(scratch.path() / "tree" / one, "");
        const auto first = std::min(one, other);
        const auto second = std::max(one, other);
        EXPECT_EQ(scanTree(scratch.path()).firstNameClash(),
                  isClash ? std::optional("tree/" + first + " and tree/" + second) : std::nullopt);
    }
}

TEST(TreeManifestTest, AFileThatIsDamagedIsAbsentAndNeverACrash) {
    const ScratchFolder scratch;
    fs::create_directory(scratch.path() / "tree");
    makeOddTree(scratch.path() / "tree");
    fs::remove(scratch.path() / "tree/big");
    auto manifest = scanTree(scratch.path() / "tree");
    const FileDescriptor file(open((scratch.path() / "file").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    manifest.write(file);
    EXPECT_THAT(scratch.read("file"), testing::StartsWith("RAMDISK TREES 1\n"))
        << "as former versions read it";
    EXPECT_TRUE(TreeManifest::read(file));
    manifest.contents().items.front().flags = immutableFlag;
    manifest.contents().items[1].flags = noDumpFlag;
    manifest.write(file);
    EXPECT_THAT(scratch.read("file"), testing::StartsWith("RAMDISK TREES 2\n"));
    const auto whole = scratch.read("file");
    const auto again = TreeManifest::read(file);
    ASSERT_TRUE(again);
    EXPECT_EQ(manifest.firstDifference(*again), std::nullopt);
    EXPECT_EQ(again->byteCount(), manifest.byteCount());

    std::mt19937 random(42); // NOLINT: the same every time
    for (int round = 0; round < 10'000; ++round) {
        auto bytes = whole;
        for (auto count = 1 + random() % 3; count > 0; --count) {
            const auto place = random() % bytes.size();
            bytes[place] = static_cast<char>(bytes[place] ^ static_cast<char>(1 + random() % 255));
        }
        if (random() % 4 == 0) {
            bytes.resize(random() % bytes.size());
        }
        const bool isSealed = round % 2 == 0 && bytes.size() > 40;
        if (isSealed) {
            // Whoever can write the file can also make its hash right.
            const auto hash = XXH3_128bits(bytes.data() + 40, bytes.size() - 40);
            const std::uint64_t header[3] = {bytes.size() - 40, hash.low64, hash.high64};
            bytes.replace(0, 16, whole, 0, 16);
            std::memcpy(bytes.data() + 16, header, sizeof header);
        }
        ASSERT_EQ(ftruncate(file.get(), 0), 0);
        ASSERT_EQ(pwrite(file.get(), bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
        const auto damaged = TreeManifest::read(file);
        EXPECT_TRUE(isSealed || !damaged);
        if (damaged) {
            static_cast<void>(damaged->byteCount());
            static_cast<void>(damaged->firstNameClash());
            static_cast<void>(damaged->firstDifference(manifest));
            static_cast<void>(manifest.firstDifference(*damaged));
        }
    }
}

} // namespace
} // namespace ramdisk::test
