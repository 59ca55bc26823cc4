#include "RamDiskInfrastructure/MacTools/LaunchdEnvironment.h"
#include "tests/support/FakeUserDefaults.h"
#include "tests/support/RedirectWorld.h"
#include "tests/support/ScriptedRunner.h"

namespace ramdisk::test {
namespace {

using Former = std::optional<std::string>;

constexpr const char* xcodeKey = "IDECustomDerivedDataLocation";
const RedirectTarget xcode{RedirectTarget::XcodeDerivedData{}};
const RedirectTarget temporaryFolder{RedirectTarget::TemporaryFolder{}};
const std::string launchctl = "/bin/launchctl ";

TEST(MacRedirectTest, TheTemporaryFolderIsSetThroughLaunchdAndBroughtBack) {
    const struct {
        Former former;
        Former meanwhile; ///< What somebody else set, when it is no longer ours.
        const char* last;
        bool hangs = false;
    } rows[] = {{{}, {}, "unsetenv TMPDIR"},
                {"/var/folders/x/T/", {}, "setenv TMPDIR /var/folders/x/T/"},
                {{}, "/mine", "getenv TMPDIR"},
                {{}, {}, "unsetenv TMPDIR", true}};
    for (const auto& row : rows) {
        RedirectWorld world;
        const auto runner = std::make_shared<ScriptedRunner>();
        world.parts.environment = std::make_shared<LaunchdEnvironment>(runner);
        const auto ours = world.onDisk("Temporary").string();
        const auto told = [](const Former& value) {
            return CommandOutput{value ? 0 : 1, value ? *value + "\n" : "", ""};
        };
        runner->once(launchctl + "getenv TMPDIR", told(row.former));
        runner->once(launchctl + "setenv TMPDIR " + ours);
        ASSERT_THAT(texts(world.useCase().add(world.disk(), {temporaryFolder})), IsEmpty());
        EXPECT_EQ(world.useCase().list().front().restoreState,
                  RedirectRestoreState{RedirectRestoreState::EnvironmentVariable{row.former}});
        EXPECT_EQ(std::filesystem::status(ours).permissions(), std::filesystem::perms(0700));

        if (row.hangs) {
            runner->once(launchctl + "getenv TMPDIR", told(ours));
            runner->once(launchctl + row.last, ScriptedRunner::hangs());
            EXPECT_THAT(texts(world.useCase().undo("Dev")),
                        ElementsAre("launchctl did not finish in 15 seconds"));
            EXPECT_TRUE(world.useCase().list().front().restoreState) << "kept, to be tried again";
        }
        runner->once(launchctl + "getenv TMPDIR", told(row.meanwhile ? row.meanwhile : ours));
        if (!row.meanwhile) {
            runner->once(launchctl + row.last);
        }
        EXPECT_THAT(texts(world.useCase().undo("Dev")), IsEmpty());
        EXPECT_FALSE(world.useCase().list().front().restoreState);
        EXPECT_EQ(runner->lines().back(), launchctl + row.last);
        for (const auto& command : runner->commands) {
            EXPECT_EQ(command.timeout, 15);
        }
    }
}

TEST(MacRedirectTest, XcodesPreferenceIsSetAndBroughtBack) {
    for (const auto& former : {Former(), Former("/Users/me/Build"), Former("")}) {
        RedirectWorld world;
        const auto defaults = std::make_shared<FakeUserDefaults>();
        defaults->stored.emplace("Other", DefaultsValue{true});
        if (former) {
            defaults->stored.emplace(xcodeKey, DefaultsValue{*former});
        }
        const auto before = defaults->stored;
        world.parts.xcode = std::make_shared<PreferenceDomain>(defaults);
        ASSERT_THAT(texts(world.useCase().add(world.disk(), {xcode})), IsEmpty());
        EXPECT_EQ(defaults->value(xcodeKey), DefaultsValue{world.onDisk("DerivedData").string()});
        EXPECT_EQ(world.useCase().list().front().restoreState,
                  RedirectRestoreState{RedirectRestoreState::Preference{former}});
        ASSERT_THAT(texts(world.useCase().undo("Dev")), IsEmpty());
        EXPECT_EQ(defaults->stored, before);

        ASSERT_THAT(texts(world.useCase().apply(world.disk())), IsEmpty());
        defaults->stored.insert_or_assign(xcodeKey, DefaultsValue{std::string("/chosen/meanwhile")});
        ASSERT_THAT(texts(world.useCase().undo("Dev")), IsEmpty());
        EXPECT_EQ(defaults->value(xcodeKey), DefaultsValue{std::string("/chosen/meanwhile")});
    }
}

TEST(MacRedirectTest, XcodesPreferenceIsRefusedWithoutXcodeAndWhereItCouldNotBePutBack) {
    RedirectWorld world;
    EXPECT_THAT(texts(world.useCase().add(world.disk(), {xcode})),
                ElementsAre("Xcode runs on macOS only, so its build products stay where they are."));
    EXPECT_THAT(world.useCase().list(), IsEmpty());
    const auto defaults = std::make_shared<FakeUserDefaults>();
    defaults->stored.emplace(xcodeKey, DefaultsValue{true});
    world.parts.xcode = std::make_shared<PreferenceDomain>(defaults);
    EXPECT_THAT(texts(world.useCase().add(world.disk(), {xcode})),
                ElementsAre("The preference “IDECustomDerivedDataLocation” holds no text."));
    EXPECT_EQ(defaults->value(xcodeKey), DefaultsValue{true});
}

TEST(MacRedirectTest, ASettingThatNoListTellsOfIsRemoved) {
    RedirectWorld world;
    const auto runner = std::make_shared<ScriptedRunner>();
    const auto defaults = std::make_shared<FakeUserDefaults>();
    world.parts.environment = std::make_shared<LaunchdEnvironment>(runner);
    world.parts.xcode = std::make_shared<PreferenceDomain>(defaults);
    EXPECT_THAT(texts(world.useCase().undo("Dev")), IsEmpty());
    EXPECT_THAT(runner->commands, IsEmpty()) << "asked although the disk has no such folder";
    std::filesystem::create_directories(world.onDisk("Temporary"));
    std::filesystem::create_directories(world.onDisk("DerivedData"));
    defaults->stored.emplace(xcodeKey, DefaultsValue{world.onDisk("DerivedData").string()});
    const CommandOutput ours{0, world.onDisk("Temporary").string() + "\n", ""};
    runner->once(launchctl + "getenv TMPDIR", ours);
    runner->once(launchctl + "getenv TMPDIR", ours);
    runner->once(launchctl + "unsetenv TMPDIR");
    const std::string text = " still led to a disk, although no redirect is stored for it. Its setting is "
                             "removed, since nobody knows what it was before.";
    EXPECT_THAT(texts(world.useCase().undo("Dev")),
                ElementsAre("“Temporary”" + text, "“DerivedData”" + text));
    EXPECT_THAT(defaults->stored, IsEmpty());
    EXPECT_EQ(runner->lines().back(), launchctl + "unsetenv TMPDIR");
}

} // namespace
} // namespace ramdisk::test
