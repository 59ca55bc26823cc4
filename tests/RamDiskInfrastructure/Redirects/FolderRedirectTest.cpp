#include "tests/support/RedirectWorld.h"

namespace ramdisk::test {
namespace {

using testing::_;
using testing::Pair;

using FilesOnDisk = FolderRedirectsUseCase::FilesOnDisk;
using LostOriginals = FolderRedirectsUseCase::LostOriginals;

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
    EXPECT_EQ(fs::read_symlink(world.home() / "work/cache"), world.onDisk("work+cache"));
    EXPECT_TRUE(fs::is_empty(world.onDisk("work+cache")));
    EXPECT_EQ(modeOf(world.onDisk("work+cache")) & 07777U, 02750U);
    EXPECT_EQ(world.read("work/cache.ramdisk-original/deep/file"), "old");
    world.write("work/cache/new", "new");

    EXPECT_THAT(texts(redirects.undo("dEv")), IsEmpty());
    EXPECT_EQ(world.tree(), before);

    // The disk keeps what it was given, as one that keeps its files does.
    EXPECT_THAT(texts(redirects.apply(world.disk())), IsEmpty());
    EXPECT_EQ(world.read("work/cache/new"), "new");
    EXPECT_THAT(texts(redirects.apply(world.disk())), IsEmpty()) << "in force already";
    EXPECT_THAT(texts(redirects.remove("Dev", {folderTarget("work/cache")})),
                ElementsAre(HasSubstr("“work/cache” has files on “Dev” that are nowhere else")));
    EXPECT_THAT(texts(redirects.change(world.disk(), {})), SizeIs(1));
    EXPECT_THAT(texts(redirects.forget("Dev")), SizeIs(1));
    EXPECT_EQ(world.read("work/cache/new"), "new") << "lost by accident";
    EXPECT_THAT(texts(redirects.remove("Dev", {folderTarget("work/cache")}, LostOriginals::keptListed,
                                       FilesOnDisk::discarded)),
                IsEmpty());
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
         "The original of “~/cache” was not found as “HOME/cache.ramdisk-original”. If its folder was moved "
         "or "
         "renamed, look for it there and give it its name back. It stays listed until it is found; `tramdisk "
         "redirects remove --forget` gives it up.",
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
        EXPECT_EQ(texts(world.useCase().repair()).empty(), left.size() != 0) << "told once";
    }
}

/// A parent of the folder that leads elsewhere, or is elsewhere, when the redirect is undone.
TEST(FolderRedirect, BringsTheOriginalBackWhereItWasTakenFrom) {
    struct Case {
        const char* name;
        std::function<void(const fs::path& home)> move;
        /// Where the original is back; empty when it is not found.
        std::string back;
    };
    const auto linkTo = [](const char* target) {
        return [target](const fs::path& home) {
            fs::remove(home / "current");
            fs::create_directory_symlink(target, home / "current");
        };
    };
    const std::vector<Case> all{
        {"the link leads elsewhere", linkTo("p-2"), "p-1/target"},
        {"the folder was renamed", [](const fs::path& home) { fs::rename(home / "p-1", home / "p-old"); },
         ""},
        {"and another made in its place",
         [](const fs::path& home) {
             fs::rename(home / "p-1", home / "p-old");
             fs::create_directories(home / "p-1/target/new");
         },
         ""},
        {"the folder was renamed with a link to it",
         [](const fs::path& home) {
             fs::rename(home / "p-1", home / "p-old");
             fs::create_directory_symlink("p-old", home / "p-1");
         },
         "p-old/target"},
        {"the folder left the home folder",
         [](const fs::path& home) {
             fs::rename(home / "p-1", home.parent_path() / "p-1");
             fs::create_directory_symlink("../p-1", home / "p-1");
         },
         ""},
    };
    for (const auto& [name, move, back] : all) {
        SCOPED_TRACE(name);
        RedirectWorld world;
        world.write("p-1/target/mine", "old");
        world.write("p-2/target/other", "other");
        linkTo("p-1")(world.home());
        const auto target = folderTarget("current/target");
        ASSERT_THAT(texts(world.useCase().add(world.disk(), {target})), IsEmpty());
        move(world.home());
        world.loseDisk();
        const auto told = texts(world.useCase().repair());
        EXPECT_EQ(world.read("p-2/target/other"), "other");
        if (!back.empty()) {
            EXPECT_THAT(told, IsEmpty());
            EXPECT_EQ(world.read(back + "/mine"), "old");
            continue;
        }
        ASSERT_FALSE(told.empty());
        EXPECT_THAT(told.front(), HasSubstr("p-1/target.ramdisk-original”. "));
        EXPECT_TRUE(world.useCase().list().front().restoreState) << "forgotten";
        if (fs::exists(world.home() / "p-old")) {
            ASSERT_EQ(told.size(), 2U);
            EXPECT_THAT(told.back(), HasSubstr("p-old/target.ramdisk-original” is the original"));
        }
        EXPECT_THAT(texts(world.useCase().remove("Dev", {target}, LostOriginals::givenUp)), IsEmpty());
        EXPECT_THAT(world.useCase().list(), IsEmpty());
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
        {folderTarget("link/below/it"), "“HOME/link” is a link that leads nowhere."},
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
        auto expected = text;
        if (const auto place = expected.find("HOME"); place != std::string::npos) {
            expected.replace(place, 4, world.home());
        }
        EXPECT_THAT(texts(world.useCase().add(world.disk(), {target})), ElementsAre(expected));
        EXPECT_EQ(world.tree(), before) << text;
        EXPECT_TRUE(fs::is_empty(world.mountPoint())) << text;
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

TEST(FolderRedirect, FoldersOfOneNameShareNothing) {
    RedirectWorld world;
    for (const auto* const folder : {"a/target", "b/target", "npm", "a+target"}) {
        world.write(std::string(folder) + "/mine", folder);
    }
    chmod((world.home() / "a/target").c_str(), 0700);
    const auto before = world.tree();
    auto redirects = world.useCase();
    EXPECT_THAT(texts(redirects.add(world.disk(), {folderTarget("a/target"),
                                                   folderTarget("b/target"),
                                                   folderTarget("a+target"),
                                                   {RedirectTarget::NpmCache{}},
                                                   folderTarget("npm")})),
                IsEmpty());
    world.write("a/target/key", "secret");
    fs::create_directory(world.home() / "a/target/barred");
    world.write("a/target/barred/x", "x");
    chmod((world.home() / "a/target/barred").c_str(), 0500);
    fs::create_directory_symlink(world.home() / "b", world.home() / "a/target/link");
    EXPECT_EQ(modeOf(world.onDisk("a+target")) & 07777U, 0700U);
    EXPECT_THAT(texts(redirects.remove("Dev", {folderTarget("a/target")}, LostOriginals::keptListed,
                                       FilesOnDisk::discarded)),
                IsEmpty());
    EXPECT_FALSE(fs::exists(world.onDisk("a+target"))) << "its memory is not free";
    EXPECT_TRUE(fs::is_empty(world.home() / "b/target"));
    EXPECT_THAT(texts(redirects.remove("Dev", {folderTarget("a/target")})),
                ElementsAre("It is not kept on “Dev”."));
    EXPECT_THAT(texts(redirects.forget("Dev")), IsEmpty());
    EXPECT_EQ(world.tree(), before);
    EXPECT_TRUE(fs::is_empty(world.mountPoint() / "Redirected"));
}

/// Earlier versions named the folder on the disk by the last part of its path, and recorded less.
TEST(FolderRedirect, OneOfAnEarlierVersionIsInForceAndUndone) {
    RedirectWorld world;
    world.write("a/target.ramdisk-original/mine", "old");
    world.write("x", "");
    fs::create_directories(world.onDisk("target"));
    fs::create_directory_symlink(world.onDisk("target"), world.home() / "a/target");
    const auto backup = (world.home() / "a/target.ramdisk-original").string();
    const auto store = [&](const std::string& state) {
        fs::create_directories(world.scratch() / "lists");
        writeFile(world.scratch() / "lists/Folder Redirects.json",
                  R"([{"id":"11111111-2222-3333-4444-555555555555","diskName":"Dev","target":{"folder":)"
                  R"({"_0":"a/target"}},"restoreState":)"
                      + state + "}]");
    };
    auto escaped = backup;
    for (auto blank = escaped.find(' '); blank != std::string::npos; blank = escaped.find(' ')) {
        escaped.replace(blank, 1, "%20");
    }
    store(R"({"linkedFolder":{"backup":"file://)" + escaped + R"(","link":")"
          + world.onDisk("target").string() + R"("}})");
    EXPECT_THAT(texts(world.useCase().repair()), IsEmpty());
    EXPECT_TRUE(fs::is_symlink(world.home() / "a/target")) << "it was in force";
    store(R"({"movedFolder":{"backup":"file://)" + escaped + R"("}})");
    EXPECT_THAT(texts(world.useCase().undo("Dev")), IsEmpty());
    EXPECT_EQ(world.read("a/target/mine"), "old");
    EXPECT_FALSE(fs::exists(backup));
}

TEST(FolderRedirect, OverlapThroughALinkIsRefused) {
    RedirectWorld world;
    world.write("real/cache/mine", "old");
    fs::create_directory_symlink("real", world.home() / "way");
    fs::create_directory_symlink(world.home() / "way", world.home() / "way 2");
    const auto before = world.tree();
    for (const auto& [first, second] :
         {std::pair("way 2/cache", "real"), {"real", "way/cache"}, {"real/cache", "way 2/cache/x"}}) {
        ASSERT_THAT(texts(world.useCase().add(world.disk(), {folderTarget(first)})), IsEmpty());
        EXPECT_THAT(texts(world.useCase().add(world.disk(), {folderTarget(second)})),
                    ElementsAre("It is already kept on “Dev”."))
            << first;
        EXPECT_THAT(texts(world.useCase().forget("Dev")), IsEmpty());
        EXPECT_EQ(world.tree(), before);
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
    for (const auto* const name : {"a", ".gradle+caches", "npm", ".cargo+registry"}) {
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
