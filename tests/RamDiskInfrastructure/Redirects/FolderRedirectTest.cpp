#include "tests/support/Files.h"
#include "tests/support/RedirectWorld.h"

#include <gmock/gmock.h>

#include <functional>

#include <sys/stat.h>

namespace ramdisk::test {
namespace {

namespace fs = std::filesystem;
using testing::_;
using testing::ElementsAre;
using testing::ElementsAreArray;
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

/// What an application, or a user, does while the disk is gone, and what lies in the home folder after.
struct Meddling {
    const char* name;
    std::function<void(const fs::path& cache)> meddle;
    std::string told;
    std::map<std::string, std::string> left;
};

TEST(FolderRedirect, BringsTheOriginalBackWhateverTookItsPlaceAndKeepsThat) {
    const std::string kept =
        "While the disk of “~/cache” was away, something else took its place. That is kept as "
        "“HOME/cache";
    const std::vector<Meddling> all{
        {"folder made anew",
         [](const auto& cache) {
             writeFile(cache.parent_path() / "cache.ramdisk-kept", "from long ago");
             fs::create_directory(cache);
             writeFile(cache / "written", "meanwhile");
         },
         kept + " 2.ramdisk-kept”.",
         {{"cache 2.ramdisk-kept/written", "meanwhile"},
          {"cache.ramdisk-kept", "from long ago"},
          {"cache/original", "old"}}},
        {"file",
         [](const auto& cache) { writeFile(cache, "a file"); },
         kept + ".ramdisk-kept”.",
         {{"cache.ramdisk-kept", "a file"}, {"cache/original", "old"}}},
        {"another link",
         [](const auto& cache) { fs::create_symlink("elsewhere", cache); },
         kept + ".ramdisk-kept”.",
         {{"cache.ramdisk-kept", "elsewhere"}, {"cache/original", "old"}}},
        {"empty folder",
         [](const auto& cache) { fs::create_directory(cache); },
         "",
         {{"cache/original", "old"}}},
        {"nothing", [](const auto&) {}, "", {{"cache/original", "old"}}},
        {"the original gone too",
         [](const auto& cache) { fs::remove_all(cache.parent_path() / "cache.ramdisk-original"); },
         "The original of “~/cache” was no longer there to be put back.",
         {}},
    };
    for (const auto& [name, meddle, told, left] : all) {
        SCOPED_TRACE(name);
        RedirectWorld world;
        world.write("cache/original", "old");
        ASSERT_THAT(texts(world.useCase().add(world.disk(), {folderTarget("cache")})), IsEmpty());
        world.loseDisk();
        fs::remove(world.home() / "cache");
        meddle(world.home() / "cache");
        auto expected = told;
        if (const auto place = expected.find("HOME"); place != std::string::npos) {
            expected.replace(place, 4, world.home());
        }
        EXPECT_THAT(texts(world.useCase().repair()),
                    ElementsAreArray(std::vector<std::string>(told.empty() ? 0 : 1, expected)));
        std::map<std::string, std::string> found;
        for (const auto& entry : fs::recursive_directory_iterator(world.home())) {
            if (entry.is_symlink() || !entry.is_directory()) {
                found[entry.path().lexically_relative(world.home())] =
                    entry.is_symlink() ? fs::read_symlink(entry.path()).string() : readFile(entry.path());
            }
        }
        EXPECT_EQ(found, left);
        EXPECT_THAT(texts(world.useCase().repair()), IsEmpty()) << "told once";
    }
}

TEST(Redirect, RefusesWhatItCannotMoveAndLeavesNoTrace) {
    struct Case {
        RedirectTarget target;
        std::string text;
    };
    std::vector<Case> cases{
        {folderTarget("link"), "“~/link” is a symbolic link. Name the folder that it leads to."},
        {folderTarget("out/x"), "“~/out” leads out of the home folder."},
        {folderTarget("file"), "“~/file” is not a folder."},
        {folderTarget("share"), "“~/share” holds files of Tavrin RamDisk itself, which have to stay."},
        {folderTarget("share/app/x"),
         "“~/share/app/x” holds files of Tavrin RamDisk itself, which have to stay."},
    };
    for (const std::string path : {"", ".", "../x", "a/../b", "/tmp", "~/x"}) {
        cases.push_back({folderTarget(path), "“" + path
                                                 + "” is not a folder to make on the disk. Give a path below "
                                                   "its top folder, like Temp or Cache/Chrome."});
    }
    RedirectWorld world;
    world.parts.reserved = {world.home() / "share/app"};
    world.write("file", "x");
    fs::create_symlink("/nowhere", world.home() / "link");
    fs::create_symlink(world.scratch(), world.home() / "out");
    const auto expectRefusal = [&](const RedirectTarget& target, const std::string& text) {
        const auto before = world.tree();
        EXPECT_THAT(texts(world.useCase().add(world.disk(), {target})), ElementsAre(text));
        EXPECT_EQ(world.tree(), before) << text;
        EXPECT_THAT(world.useCase().list(), IsEmpty()) << text;
    };
    for (const auto& [target, text] : cases) {
        expectRefusal(target, text);
    }
    writeFile(world.scratch() / "outside", "a=1\n");
    for (const auto& [leadsTo, text] :
         {std::pair("../outside", "“~/.npmrc” is a link that leads out of the home folder."),
          {"nowhere", "“~/.npmrc” is not a file, or a link to nothing."},
          {".", "“~/.npmrc” is not a file, or a link to nothing."}}) {
        fs::remove(world.home() / ".npmrc");
        fs::create_symlink(leadsTo, world.home() / ".npmrc");
        expectRefusal({RedirectTarget::NpmCache{}}, text);
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
