#include "RamDiskCore/Templates/DiskTemplate.h"

#include <gtest/gtest.h>

namespace ramdisk {
namespace {

TEST(DiskTemplate, TrimsItsTitleAndQuotesItForTheShell) {
    DiskTemplate disk(UUID::random(), "\n Xcode ", {});
    EXPECT_EQ(disk.commandLine(), "tramdisk create --template='Xcode'");
    disk.setTitle(" It's $HOME\t");
    EXPECT_EQ(disk.title(), "It's $HOME");
    EXPECT_EQ(disk.commandLine(), R"(tramdisk create --template='It'\''s $HOME')");
}

} // namespace
} // namespace ramdisk
