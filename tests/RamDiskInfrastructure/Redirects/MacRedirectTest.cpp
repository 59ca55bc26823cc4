#include "RamDiskInfrastructure/MacTools/LaunchdEnvironment.h"
#include "tests/support/FakeUserDefaults.h"
#include "tests/support/RedirectWorld.h"

#include <gmock/gmock.h>

#include <deque>

namespace ramdisk::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* xcodeKey = "IDECustomDerivedDataLocation";
const RedirectTarget xcode{RedirectTarget::XcodeDerivedData{}};
const RedirectTarget temporaryFolder{RedirectTarget::TemporaryFolder{}};

/// launchctl with one variable.
class Launchctl final : public CommandRunning {
public:
    CommandOutput run(const SystemCommand& command) override {
        EXPECT_EQ(command.executable, "/bin/launchctl");
        EXPECT_EQ(command.timeout, 15);
        commands.push_back(command.description().substr(std::string("/bin/launchctl ").size()));
        const auto& arguments = command.arguments;
        EXPECT_EQ(arguments.at(1), "TMPDIR");
        if (hangs && arguments.front() != "getenv") {
            throw CommandTimeout(command);
        }
        if (arguments.front() == "getenv") {
            return {value ? 0 : 1, value ? *value + "\n" : "", ""};
        }
        value = arguments.front() == "setenv" ? std::optional(arguments.at(2)) : std::nullopt;
        return {};
    }

    std::optional<std::string> value;
    bool hangs = false;
    std::vector<std::string> commands;
};

TEST(LaunchdTemporaryFolder, IsSetAndBroughtBack) {
    for (const std::optional<std::string>& former : {std::optional<std::string>(), {"/var/folders/x/T/"}}) {
        RedirectWorld world;
        const auto launchctl = std::make_shared<Launchctl>();
        launchctl->value = former;
        world.parts.environment = std::make_shared<LaunchdEnvironment>(launchctl);
        const auto ours = world.onDisk("Temporary").string();

        ASSERT_THAT(texts(world.useCase().add(world.disk(), {temporaryFolder})), IsEmpty());
        EXPECT_EQ(world.useCase().list().front().restoreState,
                  RedirectRestoreState{RedirectRestoreState::EnvironmentVariable{former}});
        EXPECT_EQ(std::filesystem::status(ours).permissions(), std::filesystem::perms(0700));
        ASSERT_THAT(texts(world.useCase().undo("Dev")), IsEmpty());
        EXPECT_THAT(launchctl->commands,
                    ElementsAre("getenv TMPDIR", "setenv TMPDIR " + ours, "getenv TMPDIR",
                                former ? "setenv TMPDIR " + *former : "unsetenv TMPDIR"));
        EXPECT_EQ(launchctl->value, former);
    }
}

TEST(LaunchdTemporaryFolder, LeavesAnotherValueAloneAndTellsOfALaunchdThatHangs) {
    RedirectWorld world;
    const auto launchctl = std::make_shared<Launchctl>();
    world.parts.environment = std::make_shared<LaunchdEnvironment>(launchctl);
    ASSERT_THAT(texts(world.useCase().add(world.disk(), {temporaryFolder})), IsEmpty());
    launchctl->hangs = true;
    EXPECT_THAT(texts(world.useCase().undo("Dev")), ElementsAre("launchctl did not finish in 15 seconds"));
    EXPECT_TRUE(world.useCase().list().front().restoreState) << "kept, to be tried again";
    launchctl->hangs = false;
    launchctl->value = "/mine";
    EXPECT_THAT(texts(world.useCase().repair()), IsEmpty());
    EXPECT_EQ(launchctl->value, "/mine");
    EXPECT_FALSE(world.useCase().list().front().restoreState);
}

TEST(XcodeDerivedData, IsSetAndBroughtBack) {
    for (const std::optional<std::string>& former :
         {std::optional<std::string>(), {"/Users/me/Build"}, {""}}) {
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

TEST(XcodeDerivedData, IsRefusedWithoutXcodeAndWhereItsPreferenceCouldNotBePutBack) {
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

} // namespace
} // namespace ramdisk::test
