#include "RamDiskCore/Values/DiskTemplate.h"

#include "tests/support/Testing.h"

#include <cstdio>

namespace ramdisk::test {
namespace {

TEST(DiskTemplate, TrimsItsTitleAndQuotesItForTheShell) {
    DiskTemplate disk(UUID::random(), "\n Xcode ", {});
    EXPECT_EQ(disk.commandLine(), "tramdisk create --template='Xcode'");
    disk.setTitle(" It's $HOME\t");
    EXPECT_EQ(disk.title(), "It's $HOME");
    EXPECT_EQ(disk.commandLine(), R"(tramdisk create --template='It'\''s $HOME')");
    // What a real shell makes of it.
    const auto script = "tramdisk() { printf '%s|' \"$@\"; }; " + disk.commandLine();
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> shell(popen(script.c_str(), "r"), pclose);
    std::array<char, 100> output{};
    ASSERT_NE(std::fgets(output.data(), output.size(), shell.get()), nullptr);
    EXPECT_STREQ(output.data(), "create|--template=It's $HOME|");
}

} // namespace
} // namespace ramdisk::test
