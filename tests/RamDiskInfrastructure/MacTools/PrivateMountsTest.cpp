#include "RamDiskInfrastructure/MacTools/PrivateMounts.h"

#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskInfrastructure/Unix/FileManagerFolderMaker.h"
#include "tests/support/Testing.h"

#include <sys/stat.h>
#include <unistd.h>

namespace ramdisk {
namespace {

namespace fs = std::filesystem;

class PrivateMountsTest : public testing::Test {
protected:
    test::ScratchFolder folder;
    fs::path directory = folder.path() / "Library" / "RamDisks";
    PrivateMounts mounts{directory, [](const DeviceIdentifier&) { return true; }};
};

TEST_F(PrivateMountsTest, MountPointsAreNamedAfterTheirVolumeAndStayInTheDirectory) {
    const std::pair<std::string, std::string> rows[] = {
        {"Build", "Build"},       {"  Build ", "Build"},
        {"../../etc", ":..:etc"}, {"..", "RAMDisk"},
        {"a/b", "a:b"},           {"", "RAMDisk"},
        {"Büro ☕", "Büro ☕"},     {std::string(300, 'x'), std::string(250, 'x')},
    };
    for (const auto& [name, expected] : rows) {
        EXPECT_EQ(mounts.makeMountPoint(name).path(), directory / expected);
    }
    EXPECT_TRUE(fs::is_empty(directory));
    EXPECT_EQ(fs::status(directory).permissions(), fs::perms::owner_all);
}

TEST_F(PrivateMountsTest, WhatRootMakesInAUsersFolderIsThatUsers) {
    constexpr uid_t nobody = 65534;
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root, to act for another user";
    }
    ASSERT_EQ(chown(folder.path().c_str(), nobody, nobody), 0);
    const auto made = mounts.makeMountPoint("Build");
    FileManagerFolderMaker().make("New/Deep", folder.path());
    for (const auto& path : {directory.parent_path(), directory, folder.path() / "New/Deep"}) {
        struct stat status {};
        ASSERT_EQ(stat(path.c_str(), &status), 0) << path;
        EXPECT_EQ(status.st_uid, nobody) << path;
    }
}

TEST_F(PrivateMountsTest, ATakenNameGetsANumber) {
    const auto first = mounts.makeMountPoint("Build");
    auto second = mounts.makeMountPoint("Build");
    EXPECT_EQ(second.path(), directory / "Build 1");
    second.keep();
    EXPECT_TRUE(fs::exists(first.path()));
}

TEST_F(PrivateMountsTest, OnlyEmptyFoldersThatNobodyIsMountingAreRemoved) {
    fs::create_directories(directory / "Gone");
    fs::create_directories(directory / "Full");
    std::ofstream(directory / "Full" / "file") << "kept";
    std::ofstream(directory / "file") << "kept";
    {
        const auto inFlight = mounts.makeMountPoint("New");
        mounts.removeEmptyMountPoints();
        EXPECT_TRUE(fs::exists(inFlight.path()));
    }
    mounts.removeEmptyMountPoints();
    EXPECT_FALSE(fs::exists(directory / "Gone"));
    EXPECT_TRUE(fs::exists(directory / "Full" / "file") && fs::exists(directory / "file"));
}

TEST_F(PrivateMountsTest, ALinkIsNoDirectoryForPrivateMounts) {
    fs::create_directories(folder.path() / "elsewhere");
    fs::create_directories(directory.parent_path());
    fs::create_directory_symlink(folder.path() / "elsewhere", directory);
    EXPECT_THROW((void)mounts.makeMountPoint("Build"), std::system_error);
    EXPECT_TRUE(fs::is_empty(folder.path() / "elsewhere"));
}

TEST_F(PrivateMountsTest, WhatLiesInsideIsToldByWholeComponents) {
    EXPECT_TRUE(mounts.contains(directory / "Build"));
    EXPECT_TRUE(mounts.contains(directory / "." / "Build/"));
    EXPECT_TRUE(mounts.contains(folder.path() / "Library" / "Other" / ".." / "RamDisks" / "Build"));
    // The tools spell the letters of a path in their own way.
    const PrivateMounts accented{"/Users/Ju\u0308rgen/RamDisks",
                                 [](const DeviceIdentifier&) { return true; }};
    EXPECT_TRUE(accented.contains("/Users/J\u00fcrgen/RamDisks/Build"));
    fs::create_directories(directory);
    fs::create_directory_symlink(folder.path() / "Library", folder.path() / "link");
    const PrivateMounts linked{folder.path() / "link/RamDisks", [](const DeviceIdentifier&) { return true; }};
    EXPECT_TRUE(linked.contains(directory / "Build"));
    EXPECT_FALSE(mounts.contains(directory));
    EXPECT_FALSE(mounts.contains(directory.string() + "2/Build"));
    EXPECT_FALSE(mounts.contains(directory / ".." / "Build"));
}

TEST_F(PrivateMountsTest, FoldersAreMadeInsideTheVolumeOnly) {
    FileManagerFolderMaker maker;
    const auto volume = folder.path() / "volume";
    fs::create_directories(volume);
    fs::create_directory_symlink(folder.path(), volume / "link");
    std::ofstream(volume / "file") << "kept";
    maker.make("a/b//./c/", volume);
    maker.make("a/b", volume);
    EXPECT_TRUE(fs::is_directory(volume / "a" / "b" / "c"));
    for (const auto* path : {"../out", "a/../../out", "/out", "link/out", "file/out", "file"}) {
        try {
            maker.make(path, volume);
            ADD_FAILURE() << path;
        } catch (const RamDiskError& error) {
            EXPECT_EQ(std::get<RamDiskError::FolderNotCreated>(error.value()).folder, path);
        }
    }
    EXPECT_FALSE(fs::exists(folder.path() / "out"));
}

} // namespace
} // namespace ramdisk
