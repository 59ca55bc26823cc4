#include "RamDiskInfrastructure/Archive/SavedContentsArchiver.h"
#include "tests/RamDiskInfrastructure/Linux/SavedContents/SavingMachine.h"

#include <algorithm>

#include <sys/xattr.h>
#include <unistd.h>

namespace ramdisk::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
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

} // namespace
} // namespace ramdisk::test
