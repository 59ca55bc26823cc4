#include "tests/RamDiskInfrastructure/Archive/SavingWorld.h"

namespace ramdisk::test {
namespace {

template <typename Work>
RamDiskError::Case failureOf(const Work& work) {
    try {
        work();
    } catch (const RamDiskError& error) {
        return error.value();
    }
    throw std::logic_error("nothing failed");
}

TEST(SavedContentsArchiver, KeepsAsManyCopiesAsAskedForInTheOrderOfTheirSaving) {
    SavingWorld world;
    EXPECT_THAT(world.copies(), IsEmpty());
    struct Row {
        std::uint32_t previousCopies;
        std::string content;
        std::vector<std::string> copies;
        SaveOutcome outcome = SaveOutcome::saved;
    };
    // All within one second or two, so that most names need a number.
    for (const auto& row : std::vector<Row>{{2, "1", {"1"}},
                                            {2, "2", {"2", "1"}},
                                            {2, "3", {"3", "2", "1"}},
                                            {2, "4", {"4", "3", "2"}},
                                            {2, "5", {"5", "4", "3"}},
                                            {3, "6", {"6", "5", "4", "3"}},
                                            {1, "6", {"6", "5"}, SaveOutcome::nothingChanged},
                                            {1, "7", {"7", "6"}},
                                            {0, "8", {"8"}}}) {
        world.previousCopies = row.previousCopies;
        std::error_code none;
        const auto written = std::filesystem::last_write_time(world.files.latest, none);
        EXPECT_EQ(world.save(row.content), row.outcome);
        EXPECT_EQ(std::filesystem::last_write_time(world.files.latest) == written,
                  row.outcome == SaveOutcome::nothingChanged);
        EXPECT_THAT(world.copies(), ElementsAreArray(images(row.copies)));
    }
    EXPECT_EQ(std::filesystem::status(world.files.latest.parent_path()).permissions(),
              std::filesystem::perms(0700));
}

TEST(SavedContentsArchiver, KeepsTheOrderOfSavingWhateverTheClockSays) {
    SavingWorld world;
    world.previousCopies = 2;
    for (const auto* content : {"1", "2", "3"}) {
        world.save(content);
    }
    for (const auto& [content, copies] : std::vector<std::pair<std::string, std::vector<std::string>>>{
             {"4", {"4", "3", "2"}}, {"5", {"5", "4", "3"}}, {"6", {"6", "5", "4"}}}) {
        // As if the clock had been months ahead until now.
        std::filesystem::last_write_time(world.files.latest, std::filesystem::file_time_type::clock::now()
                                                                 - std::chrono::hours(2000));
        world.save(content);
        EXPECT_THAT(world.copies(), ElementsAreArray(images(copies)));
    }
}

TEST(SavedContentsArchiver, FailsWithTheCopiesAsTheyWere) {
    SavingWorld world;
    world.save("1");
    const auto file = FakeImageTool::fileOn(world.disk);
    const auto takeAway = [&world] { std::filesystem::remove_all(*world.disk.mountPoint); };
    int changes = 0;
    for (const auto& [meanwhile, error] : std::vector<std::pair<std::function<void()>, RamDiskError::Case>>{
             {[&] { writeFile(file, std::to_string(++changes)); }, RamDiskError::FilesKeptChanging{}},
             {[] { throw std::runtime_error("a reason"); }, RamDiskError::ContentsTransferFailed{"a reason"}},
             {[] { throw RamDiskError(RamDiskError::IncorrectPassphrase{}); },
              RamDiskError::IncorrectPassphrase{}},
             {takeAway, RamDiskError::DiskEjected{}}}) {
        world.tool->meanwhile = meanwhile;
        EXPECT_EQ(failureOf([&] { world.save("2"); }), error);
        EXPECT_THAT(world.copies(), ElementsAre("[1]"));
        EXPECT_THAT(world.leftovers(), IsEmpty());
    }
    EXPECT_EQ(changes, world.tool->mostRounds);
}

TEST(SavedContentsArchiver, CountsWhatChangedOnceAndTakesNoCopyOfADiskThatLeft) {
    SavingWorld world;
    int fillings = 0;
    world.tool->meanwhile = [&] {
        if (++fillings == 1) {
            writeFile(FakeImageTool::fileOn(world.disk), "later");
        }
    };
    world.save("first");
    EXPECT_THAT(world.copies(), ElementsAre("[later]"));

    world.observer = [&](std::string_view step) {
        if (step == "verify") {
            std::filesystem::remove_all(*world.disk.mountPoint);
        }
    };
    EXPECT_EQ(failureOf([&] { world.save("2"); }), RamDiskError::Case(RamDiskError::DiskEjected{}));
    EXPECT_THAT(world.copies(), ElementsAre("[later]"));
}

TEST(SavedContentsArchiver, BringsAnEarlierCopyBackAndAnotherFileNot) {
    SavingWorld world;
    for (const auto* content : {"1", "2", "3"}) {
        world.save(content);
    }
    world.tool->closing = SavedImageTool::Closing::leftOpen;
    EXPECT_TRUE(world.restore(world.archiver().copies(world.files)[1].image).isImageLeftOpen);
    EXPECT_EQ(world.onDisk(), "2");
    EXPECT_THAT(world.copies(), ElementsAre("[2]", "[3]", "[1]"));

    world.tool->closing = SavedImageTool::Closing::closed;
    EXPECT_FALSE(world.restore(world.files.latest).isImageLeftOpen);
    const auto foreign = world.scratch.path() / world.names.earlier({5}).filename();
    writeFile(foreign, "[foreign]");
    world.restore(foreign);
    EXPECT_EQ(world.onDisk(), "foreign");
    EXPECT_THAT(world.copies(), ElementsAre("[2]", "[3]", "[1]"));
    EXPECT_EQ(failureOf([&] { world.restore(world.names.earlier({7})); }),
              RamDiskError::Case(RamDiskError::ImageEjected{}));
}

TEST(SavedContentsArchiver, TakesNothingElseForACopy) {
    SavingWorld world;
    world.save("1");
    world.save("2");
    const auto folder = world.files.latest.parent_path();
    const auto foreign = world.scratch.path() / "foreign";
    writeFile(foreign, "[foreign]");
    const auto stem = world.identifier;
    for (const auto* name :
         {".earlier-", ".earlier-x", ".earlier--5", ".earlier-05", ".earlier-5-1", ".earlier-5-",
          ".earlier-99999999999999999999", ".earlier-5-4294967295", ".earlier-+5"}) {
        writeFile(folder / (stem + name + ".sparseimage"), "[planted]");
    }
    writeFile(folder / ("." + stem + ".partial-nobody.sparseimage"), "[planted]");
    writeFile(folder / ("X" + stem + ".earlier-5.sparseimage"), "[planted]");
    std::filesystem::create_symlink(foreign, world.names.earlier({9}));
    std::filesystem::create_directory(world.names.earlier({8}));
    std::filesystem::create_symlink(foreign, world.names.partial());
    const auto leftovers = world.leftovers().size();
    EXPECT_THAT(world.copies(), ElementsAre("[2]", "[1]"));

    world.save("3");
    EXPECT_THAT(world.copies(), ElementsAre("[3]", "[2]", "[1]"));
    EXPECT_EQ(world.leftovers().size(), leftovers - 1);

    // A link in the latest's place is no copy, and it is not replaced: it may lead to one.
    std::filesystem::remove(world.files.latest);
    std::filesystem::create_symlink(foreign, world.files.latest);
    for (const std::function<void()>& use :
         {std::function<void()>([&] { world.save("4"); }),
          std::function<void()>([&] { static_cast<void>(world.copies()); }),
          std::function<void()>([&] { world.restore(world.names.earlier({5})); })}) {
        EXPECT_TRUE(std::holds_alternative<RamDiskError::ContentsTransferFailed>(failureOf(use)));
    }
    EXPECT_TRUE(std::filesystem::is_symlink(world.files.latest));
    EXPECT_EQ(readFile(foreign), "[foreign]");
}

TEST(SavedContentsArchiver, PutsTheNewestCopyInThePlaceOfALatestThatIsGone) {
    SavingWorld world;
    world.save("1");
    world.save("2");
    std::filesystem::remove(world.files.latest);
    const auto copies = world.archiver().copies(world.files);
    ASSERT_EQ(copies.size(), 1U);
    EXPECT_TRUE(copies[0].isLatest);
    world.restore(copies[0].image);
    EXPECT_EQ(world.onDisk(), "1");
    EXPECT_EQ(readFile(world.files.latest), "[1]");
}

TEST(SavedContentsArchiver, DescribesCopiesAndRemovesEverythingOfOneDisk) {
    SavingWorld world;
    world.previousCopies = 1;
    for (const auto* content : {"1", "2", "3"}) {
        world.save(content);
    }
    using namespace std::chrono;
    std::filesystem::resize_file(world.files.latest, 1 << 20);
    const auto copies = world.archiver().copies(world.files);
    EXPECT_LT(copies[0].size.bytes, 1U << 20);
    EXPECT_LT(abs(system_clock::now() - copies[0].savedAt), hours(1));
    EXPECT_LT(abs(system_clock::now() - copies[1].savedAt), hours(1));
    EXPECT_EQ(world.archiver().describe(world.files.latest, {}).name, world.files.latest.filename().string());

    for (const auto& path : {world.names.incoming(), world.names.bound(), world.names.partial()}) {
        writeFile(path, "x");
    }
    const auto other = world.files.latest.parent_path() / "other.sparseimage";
    writeFile(other, "x");
    world.archiver().remove(world.files);
    EXPECT_THAT(world.leftovers(), ElementsAre("other.sparseimage"));
    EXPECT_FALSE(std::filesystem::exists(world.names.spare()));
    EXPECT_THAT(world.copies(), IsEmpty());
    std::filesystem::remove_all(world.files.latest.parent_path());
    world.archiver().remove(world.files);
}

} // namespace
} // namespace ramdisk::test
