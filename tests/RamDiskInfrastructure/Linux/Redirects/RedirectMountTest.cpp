#include "tests/support/Linux/TestMachine.h"
#include "tests/support/Linux/TestMount.h"
#include "tests/support/RedirectWorld.h"

namespace ramdisk::test {
namespace {

TEST(RedirectMount, FoldersOnAnotherFileSystemAreMovedThereButItsRootIsNot) {
    SKIP_UNLESS_ROOT();
    const TestMachine machine;
    RedirectWorld world;
    const TmpfsMount data(world.home() / "data");
    world.write("data/cache/x", "old");
    const auto before = world.tree();
    EXPECT_THAT(texts(world.useCase().add(world.disk(), {folderTarget("data")})),
                ElementsAre("“~/data” is where another file system is mounted, which cannot be moved."));
    EXPECT_THAT(texts(world.useCase().add(world.disk(), {folderTarget("data/cache")})), IsEmpty());
    EXPECT_TRUE(fs::is_symlink(world.home() / "data/cache"));
    {
        const TmpfsMount inner(world.onDisk("data+cache") / "inner");
        EXPECT_THAT(texts(world.useCase().remove("Dev", {folderTarget("data/cache")},
                                                 FolderRedirectsUseCase::LostOriginals::keptListed,
                                                 FolderRedirectsUseCase::FilesOnDisk::discarded)),
                    ElementsAre(testing::HasSubstr("data+cache/inner”.")));
        EXPECT_TRUE(fs::is_symlink(world.home() / "data/cache"));
    }
    EXPECT_THAT(texts(world.useCase().undo("Dev")), IsEmpty());
    EXPECT_EQ(world.tree(), before);
}

TEST(RedirectMount, WhatRootMakesInAnotherUsersHomeIsThatUsers) {
    SKIP_UNLESS_ROOT();
    RedirectWorld world;
    world.write("cache/x", "old");
    for (const auto& path : {world.home(), world.home() / "cache"}) {
        ASSERT_EQ(chown(path.c_str(), nobody, nobody), 0);
    }
    ASSERT_THAT(
        texts(world.useCase().add(
            world.disk(), {folderTarget("cache"), folderTarget("a/b"), {RedirectTarget::NpmCache{}}})),
        IsEmpty());
    for (const auto& path :
         {world.home() / "cache", world.home() / "a", world.home() / "a/b", world.home() / ".npmrc",
          world.onDisk("cache"), world.onDisk("a+b"), world.onDisk("npm")}) {
        struct stat status {};
        ASSERT_EQ(lstat(path.c_str(), &status), 0) << path;
        EXPECT_EQ(status.st_uid, nobody) << path;
    }
    EXPECT_THAT(texts(world.useCase().undo("Dev")), IsEmpty());
}

} // namespace
} // namespace ramdisk::test
