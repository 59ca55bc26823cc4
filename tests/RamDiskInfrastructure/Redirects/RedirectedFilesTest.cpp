#include "tests/support/RedirectWorld.h"

namespace ramdisk::test {
namespace {

using FilesOnDisk = FolderRedirectsUseCase::FilesOnDisk;
using LostOriginals = FolderRedirectsUseCase::LostOriginals;

/// With an original and without one.
TEST(RedirectedFiles, FilesOnTheDiskBecomeTheFolderAndTheOriginalIsKeptBeside) {
    for (const bool hasOriginal : {true, false}) {
        RedirectWorld world;
        world.write("x", "");
        if (hasOriginal) {
            world.write("p/target/mine", "old");
            world.write("p/target.ramdisk-former", "a file of the user's");
        }
        auto redirects = world.useCase();
        ASSERT_THAT(texts(redirects.add(world.disk(), {folderTarget("p/target")})), IsEmpty());
        world.write("p/target/deep/new", "new");
        chmod((world.home() / "p/target/deep").c_str(), 0750);
        const auto told = redirects.remove("Dev", {folderTarget("p/target")}, LostOriginals::keptListed,
                                           FilesOnDisk::putBack);
        ASSERT_EQ(told.size(), hasOriginal ? 1U : 0U) << testing::PrintToString(texts(told));
        EXPECT_EQ(world.read("p/target/deep/new"), "new");
        EXPECT_EQ(fs::status(world.home() / "p/target/deep").permissions(), fs::perms(0750));
        EXPECT_THAT(redirects.list(), IsEmpty());
        EXPECT_FALSE(fs::exists(world.onDisk("p+target")));
        if (hasOriginal) {
            EXPECT_EQ(told.front().kind, RedirectFailure::Kind::note);
            EXPECT_EQ(texts(told).front(), "The original is kept as “"
                                               + (world.home() / "p/target 2.ramdisk-former").string()
                                               + "”.");
            EXPECT_EQ(world.read("p/target 2.ramdisk-former/mine"), "old");
            EXPECT_EQ(world.read("p/target.ramdisk-former"), "a file of the user's");
        }
        EXPECT_EQ(world.tree().size(), hasOriginal ? 8U : 5U) << "something is left behind";
    }
}

TEST(RedirectedFiles, ACopyThatFailsChangesNothing) {
    RedirectWorld world;
    world.write("target/mine", "old");
    auto redirects = world.useCase();
    const auto before = world.tree();
    world.copier->failure = "No space left on device";
    const auto noRoom = ElementsAre("Could not copy the contents: No space left on device");
    EXPECT_THAT(texts(redirects.add(world.disk(), {folderTarget("target")}, RedirectStart::copyOfOriginal)),
                noRoom);
    EXPECT_EQ(world.tree(), before);
    EXPECT_TRUE(fs::is_empty(world.mountPoint()));
    EXPECT_THAT(redirects.list(), IsEmpty());
    world.copier->failure.clear();
    ASSERT_THAT(texts(redirects.add(world.disk(), {folderTarget("target")}, RedirectStart::copyOfOriginal)),
                IsEmpty());
    EXPECT_EQ(world.read("target/mine"), "old");
    EXPECT_TRUE(fs::exists(world.onDisk("target") / "mine")) << "not on the disk";
    world.write("target/mine", "new");
    const auto inPlace = world.tree();
    world.copier->failure = "No space left on device";
    EXPECT_THAT(texts(redirects.remove("Dev", {folderTarget("target")}, LostOriginals::keptListed,
                                       FilesOnDisk::putBack)),
                noRoom);
    EXPECT_EQ(world.tree(), inPlace);
    EXPECT_EQ(world.read("target/mine"), "new");
    EXPECT_THAT(texts(redirects.add(world.disk(), {folderTarget("target")}, RedirectStart::copyOfOriginal)),
                ElementsAre(HasSubstr("It is kept on “Dev” already.")));
}

/// A list that is damaged as a whole stops everything but `repair`, which makes it anew.
TEST(RedirectedFiles, AListThatCannotBeReadIsMadeAnewFromWhatStands) {
    const std::vector<std::function<void(const fs::path&)>> damages{
        [](const auto& file) { writeFile(file, "["); },
        [](const auto& file) { writeFile(file, "{}"); },
        [](const auto& file) { writeFile(file, ""); },
        [](const auto& file) { mkfifo(file.c_str(), 0600); },
        [](const auto& file) { fs::create_directory(file); },
    };
    for (std::size_t index = 0; index < damages.size() * 2; ++index) {
        SCOPED_TRACE(index);
        const bool isLost = index >= damages.size();
        RedirectWorld world;
        world.write("a/deep/way/target/mine", "old");
        world.write("x", "");
        const auto before = world.tree();
        fs::create_directory_symlink(world.onDisk("elsewhere"), world.home() / "users link");
        auto redirects = world.useCase();
        ASSERT_THAT(
            texts(redirects.add(world.disk(), {folderTarget("a/deep/way/target"), folderTarget("b+c")})),
            IsEmpty());
        world.write("a/deep/way/target/new", "new");
        const auto file = world.scratch() / "lists/Folder Redirects.json";
        fs::remove(file);
        damages[index % damages.size()](file);
        if (isLost) {
            world.loseDisk();
        }
        const auto inPlace = world.tree();
        EXPECT_THROW(static_cast<void>(redirects.list()), std::runtime_error);
        EXPECT_THROW(redirects.undo("Dev"), std::runtime_error);
        EXPECT_THROW(redirects.undoLost(), std::runtime_error);
        EXPECT_THROW(redirects.add(world.disk(), {folderTarget("z")}), std::exception);
        EXPECT_EQ(world.tree(), inPlace);
        auto repaired = world.useCase();
        EXPECT_THAT(texts(repaired.repair()), ElementsAre(HasSubstr("Folders found in place: 2.")));
        if (!isLost) {
            EXPECT_EQ(world.tree(), inPlace) << "the disk is there, and so is the redirect";
            EXPECT_THAT(texts(repaired.undo("Dev")), IsEmpty());
        }
        fs::remove(world.home() / "users link");
        EXPECT_EQ(world.tree(), before);
        EXPECT_EQ(std::distance(fs::directory_iterator(world.scratch() / "lists"), {}), 3)
            << "the list, what it was, and its lock";
    }
}

TEST(RedirectedFiles, OneWhoseToolMovedFollowsItWithItsFiles) {
    RedirectWorld world;
    world.write(".cache/pip/mine", "old");
    auto redirects = world.useCase();
    const auto pip = cacheTarget(KnownCache::pip);
    for (const bool isAddedAgain : {true, false}) {
        world.variables.clear();
        const auto before = world.tree();
        ASSERT_THAT(texts(redirects.add(world.disk(), {pip})), IsEmpty());
        writeFile(world.onDisk(".cache+pip") / "wheel", "cached");
        world.variables["PIP_CACHE_DIR"] = world.home() / "elsewhere";
        std::vector<RedirectFailure> told;
        if (isAddedAgain) {
            told = redirects.add(world.disk(), {pip});
        } else {
            ASSERT_THAT(texts(redirects.undo("Dev")), IsEmpty());
            told = redirects.apply(world.disk());
        }
        EXPECT_THAT(texts(told),
                    ElementsAre("“.cache/pip” is back in its place, since its tool keeps its files in "
                                "“elsewhere” now. Its files on “Dev” go there with it."));
        EXPECT_EQ(world.read(".cache/pip/mine"), "old");
        EXPECT_EQ(world.read("elsewhere/wheel"), "cached");
        EXPECT_FALSE(fs::exists(world.onDisk(".cache+pip")));
        EXPECT_THAT(texts(redirects.remove("Dev", {pip})), IsEmpty()) << "a cache can be freed";
        EXPECT_EQ(world.tree(), before);
    }
}

TEST(RedirectedFiles, GitDoesNotSeeALinkNorItsOriginal) {
    const auto git = [](const fs::path& project, const std::string& arguments) {
        return std::system(("git -C '" + project.string() + "' " + arguments + " >/dev/null 2>&1").c_str());
    };
    for (const std::string own : {"*.o", "# mine\n/build\n", "", "none"}) {
        RedirectWorld world;
        const auto project = world.home() / "p";
        world.write("p/.gitignore", "target/\n");
        world.write("p/sub/#ta[r]get/mine", "old");
        ASSERT_EQ(git(project, "init -q --template="), 0);
        ASSERT_EQ(git(project, "add .gitignore"), 0);
        const auto exclude = project / ".git/info/exclude";
        fs::create_directory(exclude.parent_path());
        if (own != "none") {
            writeFile(exclude, own);
        }
        const auto before = world.tree();
        auto redirects = world.useCase();
        ASSERT_THAT(texts(redirects.add(world.disk(), {folderTarget("p/sub/#ta[r]get")})), IsEmpty());
        writeFile(project / "sub/#ta[r]get/result", "x");
        EXPECT_EQ(git(project, "clean -fd"), 0);
        EXPECT_EQ(world.read("p/sub/#ta[r]get/result"), "x");
        EXPECT_EQ(world.read("p/sub/#ta[r]get.ramdisk-original/mine"), "old");
        ASSERT_THAT(texts(redirects.undo("Dev")), IsEmpty());
        EXPECT_EQ(world.tree(), before) << own;
    }
}

} // namespace
} // namespace ramdisk::test
