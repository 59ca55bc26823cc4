#include "RamDiskInfrastructure/Linux/Records/MountFolders.h"

#include "tests/support/Linux/TestMachine.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

namespace ramdisk::test {
namespace {

TEST(MountFoldersTest, WhatRootMakesBelowTheHomeOfTheUserBehindSudoIsThatUsers) {
    SKIP_UNLESS_ROOT();
    const TestMachine machine;
    LinuxHost host;
    host.home = machine.folder() / "home";
    host.privateMounts = host.home / ".local/share/RamDisks";
    host.owner = nobody;
    host.ownerGroup = nobody;
    std::filesystem::create_directory(host.home);
    ASSERT_EQ(chown(host.home.c_str(), nobody, nobody), 0);
    const auto made = MountFolders(host).make(
        "Private", VolumeAccess::onlyMe, [](const auto&) {}, [](const auto&) { return false; });
    EXPECT_EQ(made.path, host.privateMounts / "Private");
    for (auto folder = host.privateMounts; folder != host.home; folder = folder.parent_path()) {
        struct stat status {};
        ASSERT_EQ(lstat(folder.c_str(), &status), 0) << folder;
        EXPECT_EQ(status.st_uid, nobody) << folder;
        EXPECT_EQ(status.st_gid, nobody) << folder;
        EXPECT_EQ(status.st_mode & 07777U, 0700U) << folder;
    }
}

} // namespace
} // namespace ramdisk::test
