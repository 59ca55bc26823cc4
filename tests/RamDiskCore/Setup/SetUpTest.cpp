#include "RamDiskCore/Setup/DiskTemplatesUseCase.h"
#include "RamDiskCore/Setup/SetUpRamDiskUseCase.h"
#include "RamDiskCore/Validation/DiskFolders.h"
#include "RamDiskInfrastructure/Stores/FileTemplateRepository.h"
#include "RamDiskUI/SessionText.h"
#include "tests/support/FakeSession.h"

namespace ramdisk {
namespace {

using test::caseOf;
using test::FakeSession;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class SetUpTest : public ::testing::Test {
protected:
    RamDiskSetupResult setUp(const RamDiskSetup& setup) {
        return SetUpRamDiskUseCase(session.services(), session.manage(), session.redirects()).execute(setup);
    }
    DiskTemplatesUseCase templates() {
        return {repository, std::make_shared<ConfigureRamDiskUseCase>(session.services(), session.manage(),
                                                                      session.redirects())};
    }

    FakeSession session;
    test::ScratchFolder folder;
    std::shared_ptr<TemplateRepository> repository = std::make_shared<FileTemplateRepository>(folder.path());
    RamDiskSetup whole{.specification = {.name = "Dev"},
                       .createsAtLaunch = true,
                       .keepsFiles = true,
                       .seedFolder = "/seed",
                       .redirects = {{RedirectTarget::Folder{"a"}}, {RedirectTarget::Folder{"b"}}},
                       .folders = {" Temp ", "Cache//Chrome/."}};
};

TEST_F(SetUpTest, EveryStepRunsWhateverTheOthersGave) {
    session.machine->failingFolders = {"/seed", "Temp", "a"};
    const auto result = setUp(whole);
    std::vector<std::string> texts;
    for (const auto& problem : result.problems) {
        texts.push_back(problemText(problem));
    }
    EXPECT_THAT(
        texts,
        ElementsAre("The initial contents could not be copied: Could not copy the contents: no such folder",
                    "The folder “Temp” could not be made: in the way",
                    "Folders could not be moved to the RAM disk: read-only home"));
    EXPECT_THAT(session.machine->steps,
                ElementsAre("allocate 1073741824", "format disk4 as Dev",
                            "index off " + result.creation.ramDisk.mountPoint->string(), "settle disk4",
                            "copy /seed to Dev", "make Temp on Dev", "make Cache/Chrome on Dev", "redirect a",
                            "redirect b"));
    const auto profiles = session.profiles->load();
    ASSERT_THAT(profiles, SizeIs(1));
    EXPECT_TRUE(profiles[0].keepsContents);
    EXPECT_THAT(profiles[0].folders, ElementsAre("Temp", "Cache/Chrome"));
    EXPECT_THAT(session.redirectList->load(), SizeIs(1));
}

TEST_F(SetUpTest, StoredRedirectsComeBackWithTheDiskAndGoWhenTheyAreReplaced) {
    const RamDiskSetup bare{.specification = {.name = "Dev"}};
    session.redirectList
        ->update([this] {
            session.redirectList->save(
                {{.id = UUID::random(), .diskName = "dev", .target = {RedirectTarget::Folder{"a"}}}});
        })
        .get();
    const auto disk = setUp(bare).creation.ramDisk;
    EXPECT_EQ(session.machine->steps.back(), "redirect a");
    ConfigureRamDiskUseCase configure(session.services(), session.manage(), session.redirects());
    RamDiskChanges changes;
    changes.redirects = {{RedirectTarget::Folder{"b"}}};
    changes.replacesRedirects = true;
    EXPECT_THAT(configure.execute(disk, changes).problems, IsEmpty());
    ASSERT_THAT(session.redirectList->load(), SizeIs(1));
    EXPECT_EQ(session.redirectList->load().front().target, changes.redirects.front());
}

TEST_F(SetUpTest, FoldersThatCannotBeMeantStopItBeforeAnythingIsMade) {
    whole.folders = {"../escape"};
    whole.specification.name = "a/b";
    EXPECT_EQ(test::failureOf([&] { setUp(whole); }), RamDiskError(RamDiskError::InvalidSpecification{
                                                          {{ValidationIssue::ForbiddenCharacter{"/"}},
                                                           {ValidationIssue::InvalidFolder{"../escape"}}}}));
    EXPECT_THAT(session.machine->steps, IsEmpty());
}

TEST(DiskFoldersTest, EntriesBecomePathsBelowTheTop) {
    struct Row {
        std::string entry;
        std::string path;
    };
    const std::vector<Row> rows{{"Temp", "Temp"},
                                {" Cache/Chrome ", "Cache/Chrome"},
                                {"/top", "top"},
                                {"./a//b/./", "a/b"},
                                {"..", ""},
                                {"a/../b", ""},
                                {"", ""},
                                {" / ", ""},
                                {"...", "..."},
                                {".hidden", ".hidden"},
                                {"a\tb", "a\tb"},
                                {"a/" + std::string(255, 'b'), "a/" + std::string(255, 'b')},
                                {"a/" + std::string(256, 'b'), ""}};
    for (const auto& row : rows) {
        const auto checked = DiskFolders::check({row.entry});
        EXPECT_EQ(checked.folders.empty() ? "" : checked.folders.front(), row.path) << row.entry;
        EXPECT_EQ(checked.issues.size(), row.path.empty() ? 1U : 0U) << row.entry;
    }
    std::vector<std::string> many{"..", "..", "f1", "f1/"};
    for (int number = 1; number <= 32; ++number) {
        many.push_back("f" + std::to_string(number));
    }
    const ValidationIssue invalid{ValidationIssue::InvalidFolder{".."}};
    EXPECT_THAT(DiskFolders::check(many).issues, ElementsAre(invalid)) << "equal ones count once";
    many.emplace_back("one more");
    EXPECT_THAT(DiskFolders::check(many).issues,
                ElementsAre(invalid, ValidationIssue{ValidationIssue::TooManyFolders{32}}));
    EXPECT_THAT(DiskFolders::check({"a", "a/", "./a"}).folders, ElementsAre("a"));
}

TEST_F(SetUpTest, ATemplateIsTheDiskThatItWasSavedFrom) {
    const auto made = setUp(whole).creation.ramDisk;
    EXPECT_EQ(caseOf([&] { templates().save(" \t", made); }), "templateNameMissing");
    EXPECT_EQ(caseOf([&] { templates().save("Npm", made); }), "builtInTemplate");
    for (const auto* const title : {"bell\a", "gpj\u202e", "\xff"}) {
        EXPECT_EQ(caseOf([&] { templates().save(title, made); }), "invalidSpecification") << title;
    }
    EXPECT_FALSE(templates().save(" Web ", made).hasReplaced);
    EXPECT_TRUE(templates().save("WEB", made).hasReplaced);
    ASSERT_THAT(repository->load(), SizeIs(1));
    // Of a disk that could not be made now.
    session.machine->memory.physical = made.capacity;
    EXPECT_EQ(caseOf([&] { templates().save("Large", made); }), "invalidSpecification");
    whole.folders = {"Temp", "Cache/Chrome"};
    EXPECT_EQ(templates().named("web").setup, whole);
    EXPECT_EQ(templates().named("xcode").setup.specification.name, "DerivedData");
    EXPECT_EQ(caseOf([&] { static_cast<void>(templates().named("none")); }), "templateNotFound");
    EXPECT_EQ(caseOf([&] { templates().remove(templates().named("npm").id); }), "builtInTemplate");
    repository->update([](TemplateRepository::List list) {
        // As an earlier version stored it.
        list.emplace_back(UUID::random(), "NPM", RamDiskSetup{});
        return list;
    });
    EXPECT_EQ(templates().named("NPM").title(), "npm");
    EXPECT_EQ(templates().remove("npm").title(), "NPM");
    EXPECT_EQ(caseOf([&] { templates().remove("npm"); }), "builtInTemplate");
    EXPECT_EQ(templates().remove("Web").title(), "WEB");
    EXPECT_THAT(repository->load(), IsEmpty());
    EXPECT_THAT(templates().templates(), SizeIs(2));
}

} // namespace
} // namespace ramdisk
