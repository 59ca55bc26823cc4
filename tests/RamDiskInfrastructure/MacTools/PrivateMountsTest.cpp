#include "RamDiskInfrastructure/MacTools/PrivateMounts.h"

#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskInfrastructure/Unix/FileManagerFolderMaker.h"
#include "tests/support/Testing.h"

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
