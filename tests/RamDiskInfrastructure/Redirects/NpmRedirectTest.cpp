#include "RamDiskInfrastructure/Commands/ProcessCommandRunner.h"
#include "RamDiskInfrastructure/Redirects/NpmConfiguration.h"
#include "tests/support/RedirectWorld.h"

namespace ramdisk::test {
namespace {

const RedirectTarget npm{RedirectTarget::NpmCache{}};
constexpr std::array oddFolders{"/m/a b/npm", "/m/x;y#z/npm", "/m/back\\slash/npm", "/m/a=b/npm"};
constexpr const char* ourLine = "cache=/m/Redirected/npm";

bool isOurs(std::string_view line) {
    return folderInLine(line) == "/m/Redirected/npm";
}

struct Configuration {
    const char* before;
    const char* during;
    /// What npm reads as its cache before; null for its default.
    const char* cacheLine;
};

// LINE stands for ours.
const std::vector<Configuration>& configurations() {
    static const std::vector<Configuration> all{
        {"", "LINE", nullptr},
        {"\n", "\nLINE\n", nullptr},
        {"fund=false\n", "fund=false\nLINE\n", nullptr},
        {"fund=false", "fund=false\nLINE", nullptr},
        {"fund=false\r\n", "fund=false\r\nLINE\r\n", nullptr},
        {"a=1\r\nfund=false", "a=1\r\nfund=false\r\nLINE", nullptr},
        {"a=1\rb=2\r", "a=1\rb=2\rLINE\r", nullptr},
        {"cache=/x\n", "LINE\n", "cache=/x"},
        {"cache=/x", "LINE", "cache=/x"},
        {"cache = /x ; note\r\nb=1\r\n", "LINE\r\nb=1\r\n", "cache = /x ; note"},
        {" \tcache\t=/x\nb=1", "LINE\nb=1", " \tcache\t=/x"},
        {"cache=/x\nb=1\ncache=/y\n", "cache=/x\nb=1\nLINE\n", "cache=/y"},
        {"; cache=/x\n#cache=/y\n", "; cache=/x\n#cache=/y\nLINE\n", nullptr},
        {"cache-min=10\nmy-cache=/x\n", "cache-min=10\nmy-cache=/x\nLINE\n", nullptr},
        {"a=1\n[s]\ncache=/x\n", "a=1\nLINE\n[s]\ncache=/x\n", nullptr},
        {"[s]", "LINE\n[s]", nullptr},
        {"caf\xe9=1\n\n\n", "caf\xe9=1\n\n\nLINE\n", nullptr},
    };
    return all;
}

TEST(NpmConfiguration, IsChangedAndPutBackByteForByte) {
    for (const auto& [before, during, line] : configurations()) {
        SCOPED_TRACE(before);
        std::string expected = during;
        expected.replace(expected.find("LINE"), 4, ourLine);
        const auto former = cacheLine(before);
        EXPECT_EQ(former, line == nullptr ? std::nullopt : std::optional<std::string>(line));
        const auto changed = withCacheLine(before, ourLine);
        EXPECT_EQ(changed, expected);
        EXPECT_EQ(former ? withCacheLine(changed, *former, isOurs) : withoutCacheLine(changed, isOurs),
                  before);
    }
    EXPECT_EQ(withCacheLine(std::nullopt, ourLine), std::string(ourLine) + "\n");
    EXPECT_EQ(withoutCacheLine(std::string(ourLine) + "\n"), std::nullopt) << "no file before, none after";
}

TEST(NpmConfiguration, FolderSurvivesNpmsRulesForValues) {
    for (const auto* const folder : oddFolders) {
        EXPECT_EQ(folderInLine(lineFor(folder)), folder);
    }
    EXPECT_THROW(static_cast<void>(lineFor("/m/${HOME}/npm")), std::runtime_error);
    EXPECT_THROW(static_cast<void>(lineFor("/m/a\nb/npm")), std::runtime_error);
}

struct Edit {
    const char* name;
    const char* before;
    /// LINE stands for ours.
    const char* edited;
    /// Null for no file.
    const char* after;
};

TEST(NpmRedirect, KeepsWhatTheUserEditedMeanwhile) {
    const std::vector<Edit> edits{
        {"another line changed", "a=1\n", "a=2\nLINE\n", "a=2\n"},
        {"our line changed", "cache=/x\n", "cache=/mine\n", "cache=/mine\n"},
        {"our line removed", "a=1\ncache=/x\n", "a=1\n", "a=1\n"},
        {"a line of his own after ours", "a=1\n", "a=1\nLINE\ncache=/mine\n", "a=1\ncache=/mine\n"},
        {"our line copied", "cache=/x\n", "LINE\na=1\nLINE\n", "cache=/x\na=1\n"},
        {"everything else removed", "a=1\n", "LINE\n", nullptr},
        {"added to a file that we made", nullptr, "LINE\na=1\n", "a=1\n"},
    };
    for (const auto& edit : edits) {
        SCOPED_TRACE(edit.name);
        RedirectWorld world;
        if (edit.before != nullptr) {
            world.write(".npmrc", edit.before);
        }
        ASSERT_THAT(texts(world.useCase().add(world.disk(), {npm})), IsEmpty());
        std::string edited = edit.edited;
        for (auto place = edited.find("LINE"); place != std::string::npos; place = edited.find("LINE")) {
            edited.replace(place, 4, "cache=" + world.onDisk("npm").string());
        }
        world.write(".npmrc", edited);
        world.loseDisk();
        EXPECT_THAT(texts(world.useCase().repair()), IsEmpty());
        EXPECT_EQ(fs::exists(world.home() / ".npmrc"), edit.after != nullptr);
        EXPECT_EQ(world.read(".npmrc"), edit.after == nullptr ? "" : edit.after);
    }
}

TEST(NpmRedirect, NewVersionsAreNeverReadableByOthersAndTheLinkToTheFileStays) {
    RedirectWorld world;
    world.write("dotfiles/npmrc", "_authToken=secret\n");
    fs::permissions(world.home() / "dotfiles/npmrc", fs::perms(0640));
    fs::create_symlink("dotfiles/npmrc", world.home() / ".npmrc");
    // Killed at each step: what is left lying about must not be more open than the file.
    for (int step = 0; world.runKilledAt(step, [&](auto& redirects) { redirects.add(world.disk(), {npm}); });
         ++step) {
        for (const auto& entry : fs::directory_iterator(world.home() / "dotfiles")) {
            EXPECT_EQ(entry.status().permissions() & ~fs::perms(0640), fs::perms::none) << entry.path();
        }
        EXPECT_TRUE(fs::is_symlink(world.home() / ".npmrc"));
        world.useCase().forget("Dev");
    }
}

TEST(RealNpm, AgreesWithUsOnEveryFile) {
    if (access("/usr/bin/npm", X_OK) != 0) {
        GTEST_SKIP() << "npm is not installed";
    }
    const ScratchFolder home;
    // One file each, so that npm can be asked about all of them at once.
    std::vector<std::string> expected;
    const auto add = [&](const std::string& content, const std::string& folder) {
        home.write("rc" + std::to_string(expected.size()), content);
        expected.push_back(folder);
    };
    for (const auto& [before, during, line] : configurations()) {
        add(withCacheLine(before, ourLine), "/m/Redirected/npm");
        if (line != nullptr) {
            add(before, folderInLine(line));
        }
    }
    for (const auto* const folder : oddFolders) {
        add(lineFor(folder), folder);
    }
    ProcessCommandRunner().runChecked(
        {"/usr/bin/env",
         {"-i", "-C", home.path(), "PATH=/usr/bin:/bin", "HOME=" + home.path().string(),
          "npm_config_offline=true", "npm_config_update_notifier=false", "sh", "-ec",
          "i=0; while [ -e rc$i ]; do npm config get cache --userconfig=rc$i > got$i & "
          "i=$((i+1)); [ $((i%4)) -ne 0 ] || wait; done; wait"},
         {},
         {}});
    for (std::size_t index = 0; index < expected.size(); ++index) {
        const auto number = std::to_string(index);
        EXPECT_EQ(home.read("got" + number), expected[index] + "\n") << home.read("rc" + number);
    }
}

} // namespace
} // namespace ramdisk::test
