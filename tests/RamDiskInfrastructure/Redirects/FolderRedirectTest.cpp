#include "tests/support/RedirectWorld.h"

#include <gmock/gmock.h>

#include <functional>

#include <sys/stat.h>

namespace ramdisk::test {
namespace {

namespace fs = std::filesystem;
using testing::_;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;

mode_t modeOf(const fs::path& path) {
    struct stat status {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status.st_mode;
}

TEST(FolderRedirect, LeadsToAnEmptyFolderOnTheDiskAndBack) {
    RedirectWorld world;
    world.write("work/cache/deep/file", "old");
    chmod((world.home() / "work/cache").c_str(), 02750);
    const auto before = world.tree();
    auto redirects = world.useCase();

    EXPECT_THAT(texts(redirects.add(world.disk(), {folderTarget("./work//cache/")})), IsEmpty());
    EXPECT_EQ(fs::read_symlink(world.home() / "work/cache"), world.onDisk("cache"));
    EXPECT_TRUE(fs::is_empty(world.onDisk("cache")));
    EXPECT_EQ(modeOf(world.onDisk("cache")) & 07777U, 02750U);
    EXPECT_EQ(world.read("work/cache.ramdisk-original/deep/file"), "old");
    world.write("work/cache/new", "new");

    EXPECT_THAT(texts(redirects.undo("dEv")), IsEmpty());
    EXPECT_EQ(world.tree(), before);

    // The disk keeps what it was given, as one that keeps its files does.
    EXPECT_THAT(texts(redirects.apply(world.disk())), IsEmpty());
    EXPECT_EQ(world.read("work/cache/new"), "new");
    EXPECT_THAT(texts(redirects.apply(world.disk())), IsEmpty()) << "in force already";
    EXPECT_THAT(texts(redirects.remove("Dev", {folderTarget("work/cache")})), IsEmpty());
    EXPECT_EQ(world.tree(), before);
    EXPECT_THAT(redirects.list(), IsEmpty());
}

TEST(FolderRedirect, RemovesTheFoldersAboveThatItMadeUnlessSomebodyUsesThem) {
    RedirectWorld world;
    auto redirects = world.useCase();
    EXPECT_THAT(texts(redirects.add(world.disk(), {folderTarget("a/b/c")})), IsEmpty());
    world.write("a/mine", "x");
    EXPECT_THAT(texts(redirects.forget("Dev")), IsEmpty());
    EXPECT_THAT(world.tree(), ElementsAre(Pair("a", _), Pair("a/mine", _)));
}

/// What an application, or a user, does while the disk is gone.
struct Meddling {
    const char* name;
    std::function<void(const RedirectWorld&)> meddle;
    std::vector<std::string> told;
    std::map<std::string, std::string> keptFiles;
};

TEST(FolderRedirect, BringsTheOriginalBackWhateverTookItsPlaceAndKeepsThat) {
    const auto replaceLink = [](const RedirectWorld& world) { fs::remove(world.home() / "cache"); };
    const std::vector<Meddling> all{
        {"folder made anew",
         [&](const RedirectWorld& world) {
             replaceLink(world);
             world.write("cache.ramdisk-kept", "from long ago");
             world.write("cache/written", "meanwhile");
         },
         {"While the disk of “~/cache” was away, something else took its place. That is kept as “HOME/cache "
          "2.ramdisk-kept”."},
         {{"cache 2.ramdisk-kept/written", "meanwhile"}, {"cache.ramdisk-kept", "from long ago"}}},
        {"file",
         [&](const RedirectWorld& world) {
             replaceLink(world);
             world.write("cache", "a file");
         },
         {"While the disk of “~/cache” was away, something else took its place. That is kept as "
          "“HOME/cache.ramdisk-kept”."},
         {{"cache.ramdisk-kept", "a file"}}},
        {"empty folder",
         [&](const RedirectWorld& world) {
             replaceLink(world);
             fs::create_directory(world.home() / "cache");
         },
         {},
         {}},
        {"another link",
         [&](const RedirectWorld& world) {
             replaceLink(world);
             fs::create_symlink("elsewhere", world.home() / "cache");
         },
         {"While the disk of “~/cache” was away, something else took its place. That is kept as "
          "“HOME/cache.ramdisk-kept”."},
         {}},
        {"nothing", replaceLink, {}, {}},
    };
    for (const auto& meddling : all) {
        SCOPED_TRACE(meddling.name);
        RedirectWorld world;
        world.write("cache/original", "old");
        ASSERT_THAT(texts(world.useCase().add(world.disk(), {folderTarget("cache")})), IsEmpty());
        world.loseDisk();
        meddling.meddle(world);
        auto expected = meddling.told;
        for (auto& text : expected) {
            text.replace(text.find("HOME"), 4, world.home());
        }
        EXPECT_EQ(texts(world.useCase().repair()), expected);
        EXPECT_EQ(world.read("cache/original"), "old");
        EXPECT_FALSE(fs::exists(world.home() / "cache.ramdisk-original"));
        for (const auto& [file, text] : meddling.keptFiles) {
            EXPECT_EQ(world.read(file), text);
        }
        EXPECT_THAT(texts(world.useCase().repair()), IsEmpty()) << "told once";
    }
}

TEST(FolderRedirect, SaysThatAnOriginalIsGone) {
    RedirectWorld world;
    world.write("cache/original", "old");
    ASSERT_THAT(texts(world.useCase().add(world.disk(), {folderTarget("cache")})), IsEmpty());
    fs::remove_all(world.home() / "cache.ramdisk-original");
    EXPECT_THAT(texts(world.useCase().undo("Dev")),
                ElementsAre("The original of “~/cache” was no longer there to be put back."));
    EXPECT_THAT(world.tree(), IsEmpty());
}

TEST(FolderRedirect, RefusesWhatItCannotMoveAndLeavesNoTrace) {
    struct Case {
        const char* path;
        std::function<void(const RedirectWorld&)> prepare;
        std::string text;
    };
    const auto nothing = [](const RedirectWorld&) {};
    const auto notAFolder = [](const std::string& path) {
        return "“" + path
               + "” is not a folder to make on the disk. Give a path below its top folder, like Temp or "
                 "Cache/Chrome.";
    };
    const std::vector<Case> cases{
        {"", nothing, notAFolder("")},
        {".", nothing, notAFolder(".")},
        {"../x", nothing, notAFolder("../x")},
        {"a/../b", nothing, notAFolder("a/../b")},
        {"/tmp", nothing, notAFolder("/tmp")},
        {"~/x", nothing, notAFolder("~/x")},
        {"link", [](const RedirectWorld& world) { fs::create_symlink("/nowhere", world.home() / "link"); },
         "“~/link” is a symbolic link. Name the folder that it leads to."},
        {"out/x",
         [](const RedirectWorld& world) { fs::create_symlink(world.scratch(), world.home() / "out"); },
         "“~/out” leads out of the home folder."},
        {"file", [](const RedirectWorld& world) { world.write("file", "x"); }, "“~/file” is not a folder."},
        {"share", nothing, "“~/share” holds files of Tavrin RamDisk itself, which have to stay."},
        {"share/app/x", nothing, "“~/share/app/x” holds files of Tavrin RamDisk itself, which have to stay."},
    };
    for (const auto& [path, prepare, text] : cases) {
        SCOPED_TRACE(path);
        RedirectWorld world;
        world.parts.reserved = {world.home() / "share/app"};
        prepare(world);
        const auto before = world.tree();
        EXPECT_THAT(texts(world.useCase().add(world.disk(), {folderTarget(path)})), ElementsAre(text));
        EXPECT_EQ(world.tree(), before);
        EXPECT_THAT(world.useCase().list(), IsEmpty());
    }
}

TEST(FolderRedirect, NeverLeadsAFolderIntoItself) {
    RedirectWorld world;
    world.write("disks/Dev/x", "");
    auto disk = world.disk();
    for (const auto* const folder : {"disks", "disks/Dev", "disks/Dev/Redirected"}) {
        disk.mountPoint = world.home() / "disks/Dev";
        EXPECT_THAT(texts(world.useCase().add(disk, {folderTarget(folder)})),
                    ElementsAre(HasSubstr("and the disk lie in one another.")));
    }
}

TEST(FolderRedirect, FollowsLinksInsideTheHomeFolderOnTheWay) {
    RedirectWorld world;
    world.write("real/cache/x", "old");
    fs::create_symlink("real", world.home() / "way");
    const auto before = world.tree();
    EXPECT_THAT(texts(world.useCase().add(world.disk(), {folderTarget("way/cache")})), IsEmpty());
    EXPECT_EQ(fs::read_symlink(world.home() / "real/cache"), world.onDisk("cache"));
    EXPECT_THAT(texts(world.useCase().undo("Dev")), IsEmpty());
    EXPECT_EQ(world.tree(), before);
}

TEST(FolderRedirect, FourOfFiveAreInForceWhenOneFails) {
    RedirectWorld world;
    world.write("file", "in the way");
    const auto failures = world.useCase().add(world.disk(), {folderTarget("a"),
                                                             cacheTarget(KnownCache::gradle),
                                                             folderTarget("file"),
                                                             {RedirectTarget::NpmCache{}},
                                                             cacheTarget(KnownCache::cargo)});
    EXPECT_THAT(texts(failures), ElementsAre("“~/file” is not a folder."));
    ASSERT_EQ(world.useCase().list().size(), 4U);
    for (const auto& redirect : world.useCase().list()) {
        EXPECT_TRUE(redirect.restoreState && !redirect.applying);
    }
    for (const auto* const name : {"a", "caches", "npm", "registry"}) {
        EXPECT_TRUE(fs::is_directory(world.onDisk(name))) << name;
    }
    // The disk comes back after a crash, made anew and empty.
    fs::remove_all(world.mountPoint());
    fs::create_directory(world.mountPoint());
    EXPECT_THAT(texts(world.useCase().apply(world.disk())), IsEmpty());
    world.write("a/written", "x");
    EXPECT_TRUE(fs::exists(world.onDisk("a") / "written"));
    EXPECT_THAT(texts(world.useCase().undo("Dev")), IsEmpty());
    EXPECT_EQ(world.tree().size(), 1U);
}

} // namespace
} // namespace ramdisk::test
