#include "RamDiskInfrastructure/Linux/Redirects/SystemdUserEnvironment.h"

#include "RamDiskInfrastructure/Redirects/RedirectPlaces.h"
#include "tests/support/RedirectInterruptions.h"

#include <fmt/format.h>

namespace ramdisk::test {
namespace {

const RedirectTarget temporaryFolder{RedirectTarget::TemporaryFolder{}};

/// A session whose service manager and bus keep their variables in files, so that they outlive a killed
/// process.
class FakeSession final : public CommandRunning {
public:
    explicit FakeSession(fs::path folder) : folder_(std::move(folder)) { fs::create_directories(folder_); }

    CommandOutput run(const SystemCommand& command) override {
        EXPECT_EQ(command.timeout, 15);
        if (command.executable == "/usr/bin/dbus-update-activation-environment") {
            std::ofstream(folder_ / "bus") << command.arguments.at(0);
            return {71, "", "says nothing"};
        }
        EXPECT_EQ(command.executable, "/usr/bin/systemctl");
        EXPECT_EQ(command.arguments.at(0), "--user");
        if (hasNoManager) {
            return {1, "", "Failed to connect to bus: No medium found"};
        }
        const auto& verb = command.arguments.at(1);
        if (verb == "show-environment") {
            return {0, "HOME=/root\n" + read("manager") + "\nXTMPDIR=/no\n", ""};
        }
        if (verb == "set-environment") {
            std::ofstream(folder_ / "manager") << command.arguments.at(2);
        } else {
            EXPECT_EQ(command.description(), "/usr/bin/systemctl --user unset-environment TMPDIR");
            fs::remove(folder_ / "manager");
        }
        return {};
    }
    [[nodiscard]] std::string read(const std::string& name) const { return readFile(folder_ / name); }
    [[nodiscard]] std::shared_ptr<SystemdUserEnvironment> environment(std::shared_ptr<FakeSession> self) {
        return std::make_shared<SystemdUserEnvironment>(
            std::move(self), SystemdUserEnvironment::Tools{"/usr/bin/systemctl",
                                                           "/usr/bin/dbus-update-activation-environment"});
    }

    bool hasNoManager = false;

private:
    fs::path folder_;
};

std::shared_ptr<FakeSession> sessionOf(RedirectWorld& world) {
    auto session = std::make_shared<FakeSession>(world.scratch() / "session");
    world.parts.environment = session->environment(session);
    return session;
}

TEST(SystemdUserEnvironment, ReadsWhatSystemctlPrints) {
    const std::string environment = "HOME=/root\n"
                                    "A=$'/with blank'\n"
                                    "B=$'it\\'s \\\\ \\n new'\n"
                                    "C=\"/old \\\"quotes\\\"\"\n"
                                    "D=\n"
                                    "TMPDIR=/run/user/0/tmp=x";
    for (const auto& [variable, value] :
         std::vector<std::pair<const char*, std::optional<std::string>>>{{"A", "/with blank"},
                                                                         {"B", "it's \\ \n new"},
                                                                         {"C", "/old \"quotes\""},
                                                                         {"D", ""},
                                                                         {"TMPDIR", "/run/user/0/tmp=x"},
                                                                         {"TMP", std::nullopt},
                                                                         {"E", std::nullopt}}) {
        EXPECT_EQ(valueInEnvironment(environment, variable), value) << variable;
    }
}

TEST(SystemdUserEnvironment, ManagerAndBusHearOfTheFolderAndOfItsEnd) {
    RedirectWorld world;
    const auto session = sessionOf(world);
    const auto ours = "TMPDIR=" + world.onDisk("Temporary").string();
    ASSERT_THAT(texts(world.useCase().add(world.disk(), {temporaryFolder})), IsEmpty());
    EXPECT_EQ(session->read("manager"), ours);
    EXPECT_EQ(session->read("bus"), ours);
    ASSERT_THAT(texts(world.useCase().undo("Dev")), IsEmpty());
    EXPECT_EQ(session->read("manager"), "");
    EXPECT_EQ(session->read("bus"), "TMPDIR=/tmp") << "the bus cannot forget a variable";
}

TEST(SystemdUserEnvironment, SaysWhyThereIsNoManager) {
    RedirectWorld world;
    const auto session = sessionOf(world);
    session->hasNoManager = true;
    const std::string text = "No service manager of this session can give new programs another temporary "
                             "folder: ";
    EXPECT_THAT(texts(world.useCase().add(world.disk(), {temporaryFolder})),
                ElementsAre(text + "Failed to connect to bus: No medium found"));
    world.parts.environment =
        std::make_shared<SystemdUserEnvironment>(session, SystemdUserEnvironment::Tools{});
    EXPECT_THAT(texts(world.useCase().add(world.disk(), {temporaryFolder})),
                ElementsAre(text + "systemctl is not installed"));
    EXPECT_THAT(world.useCase().list(), IsEmpty());
}

TEST(SystemdUserEnvironment, EveryInterruptionIsRepaired) {
    for (const auto* const former : {"", "TMPDIR=/var/my tmp"}) {
        expectEveryInterruptionIsRepaired(
            {temporaryFolder,
             [&](RedirectWorld& world) {
                 world.write("x", "");
                 const auto session = sessionOf(world);
                 std::ofstream(world.scratch() / "session/manager") << former;
             },
             [](const RedirectWorld& world) {
                 return FakeSession(world.scratch() / "session").read("manager");
             }});
    }
}

} // namespace
} // namespace ramdisk::test
