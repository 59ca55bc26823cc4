#include "RamDiskInfrastructure/Linux/Secrets/SecretServiceStore.h"

#include "RamDiskInfrastructure/Commands/ProcessCommandRunner.h"
#include "RamDiskInfrastructure/Linux/Bus/MessageBus.h"
#include "RamDiskInfrastructure/Linux/Bus/SdBus.h"
#include "tests/support/Linux/PrivateBus.h"
#include "tests/support/TraceRecorder.h"

#include <gmock/gmock.h>

#include <csignal>

namespace ramdisk {
namespace {

using test::Helper;
using test::PrivateBus;
using Accounts = std::vector<std::string>;

constexpr const char* service = "com.tavrin.RamDisk";
constexpr const char* secretsName = "org.freedesktop.secrets";
constexpr std::chrono::milliseconds patience{30'000};
/// For what never answers: the outcome is the same however soon it is reached.
constexpr std::chrono::milliseconds impatience{300};

/// A keyring whose only item stays locked until its prompt is answered: with its password when the program's
/// argument is "answer", by being sent away else.
constexpr const char* promptingKeyring = R"python(
import sys, dbus, dbus.service, dbus.mainloop.glib
from gi.repository import GLib
dbus.mainloop.glib.DBusGMainLoop(set_as_default=True)
bus = dbus.SessionBus()
root, prompt, item = '/org/freedesktop/secrets', '/org/freedesktop/secrets/prompt/1', '/org/freedesktop/secrets/item/1'
locked = True

class Prompt(dbus.service.Object):
    @dbus.service.method('org.freedesktop.Secret.Prompt', in_signature='s')
    def Prompt(self, window):
        global locked
        locked = sys.argv[1] != 'answer'
        GLib.idle_add(self.Completed, locked, dbus.Array([], signature='o', variant_level=1))
    @dbus.service.signal('org.freedesktop.Secret.Prompt', signature='bv')
    def Completed(self, dismissed, result):
        pass

class Service(dbus.service.Object):
    @dbus.service.method('org.freedesktop.Secret.Service', in_signature='a{ss}', out_signature='aoao')
    def SearchItems(self, attributes):
        return ([], [item]) if locked else ([item], [])
    @dbus.service.method('org.freedesktop.Secret.Service', in_signature='ao', out_signature='aoo')
    def Unlock(self, objects):
        return [], prompt
    @dbus.service.method('org.freedesktop.Secret.Service', in_signature='sv', out_signature='vo')
    def OpenSession(self, algorithm, value):
        return '', root + '/session/1'

class Item(dbus.service.Object):
    @dbus.service.method('org.freedesktop.Secret.Item', in_signature='o', out_signature='(oayays)')
    def GetSecret(self, session):
        return session, dbus.ByteArray(b''), dbus.ByteArray(b'unlocked'), 'text/plain'

objects = Service(bus, root), Prompt(bus, prompt), Item(bus, item)
name = dbus.service.BusName('org.freedesktop.secrets', bus)
GLib.MainLoop().run()
)python";

std::unique_ptr<Helper> startKeyring(const PrivateBus& bus, std::string_view password = "open sesame") {
    auto keyring = std::make_unique<Helper>(
        std::vector<std::string>{"gnome-keyring-daemon", "--foreground", "--components=secrets", "--unlock"},
        password);
    bus.waitForName(secretsName);
    return keyring;
}

/// Calls a method of the Secret Service that takes a list of paths.
void callWithPath(const char* member, const char* path) {
    const auto deadline = MessageBus::Clock::now() + patience;
    MessageBus bus(MessageBus::Kind::session, deadline);
    static_cast<void>(
        bus.call({secretsName, "/org/freedesktop/secrets", "org.freedesktop.Secret.Service", member},
                 deadline, [path](sd_bus_message* message) {
                     requireBus(sdBus().sd_bus_message_append(message, "ao", 1, path));
                 }));
}

void lockKeyring() {
    callWithPath("Lock", "/org/freedesktop/secrets/aliases/default");
}

CommandOutput secretTool(std::vector<std::string> arguments) {
    SystemCommand command;
    command.executable = "/usr/bin/secret-tool";
    command.arguments = std::move(arguments);
    return ProcessCommandRunner().run(command);
}

template <typename Error, typename Body>
std::string textOf(Body body) {
    try {
        body();
    } catch (const Error& error) {
        return error.what();
    }
    return "nothing was thrown";
}

class SecretServiceStoreTest : public testing::Test {
protected:
    void SetUp() override {
        if (!PrivateBus::has("dbus-daemon")) {
            GTEST_SKIP() << "dbus-daemon is not installed";
        }
        bus = std::make_unique<PrivateBus>();
    }

    /// False after a word about what is missing.
    bool startKeyringOrSkip() {
        if (!PrivateBus::has("gnome-keyring-daemon") || !PrivateBus::has("secret-tool")) {
            return false;
        }
        keyring = startKeyring(*bus);
        return true;
    }

    std::unique_ptr<PrivateBus> bus;
    std::unique_ptr<Helper> keyring;
    SecretServiceStore store{service, UnlockPrompt::never, patience};
    SecretServiceStore impatient{service, UnlockPrompt::never, impatience};
    const VolumePassphrase first{"first passphrase"};
    const VolumePassphrase second{"second, with \xE2\x80\x9Cquotes\xE2\x80\x9D and\nlines"};
};

TEST_F(SecretServiceStoreTest, KeepsSecretsAsOtherProgramsSeeThemAndAfterTheKeyringWasKilled) {
    if (!startKeyringOrSkip()) {
        GTEST_SKIP() << "gnome-keyring or libsecret-tools is not installed";
    }
    EXPECT_EQ(store.read("A"), std::nullopt);
    EXPECT_EQ(store.accounts(), Accounts{});
    store.store("A", first);
    store.store("B/ö", first);
    SecretServiceStore("com.example.Other", UnlockPrompt::never, patience).store("C", first);
    store.store("A", second);
    EXPECT_EQ(store.read("A"), second);
    EXPECT_EQ(store.accounts(), (Accounts{"A", "B/ö"}));

    const auto found = secretTool({"search", "--all", "service", service, "account", "A"});
    const auto text = found.standardOutput + found.standardError;
    EXPECT_NE(text.find("label = RamDisk saved contents\n"), std::string::npos) << text;
    EXPECT_EQ(text.find("label"), text.rfind("label")) << "updated in place, not added";
    EXPECT_EQ(secretTool({"lookup", "service", service, "account", "A"}).standardOutput, second.value());

    keyring->end();
    keyring = startKeyring(*bus);
    EXPECT_EQ(store.read("A"), second);
    store.remove("A");
    store.remove("A");
    EXPECT_EQ(store.read("A"), std::nullopt);
    EXPECT_EQ(store.accounts(), Accounts{"B/ö"});
}

TEST_F(SecretServiceStoreTest, NeverTakesALockedKeyringForAnEmptyOne) {
    if (!startKeyringOrSkip()) {
        GTEST_SKIP() << "gnome-keyring or libsecret-tools is not installed";
    }
    store.store("A", first);
    lockKeyring();
    for (const std::string account : {"A", "never stored"}) {
        const auto locked = "The keyring is locked. Unlock it, then try again.";
        EXPECT_EQ(textOf<SecretServiceUnavailable>([&] { static_cast<void>(store.read(account)); }), locked);
        EXPECT_EQ(textOf<SecretServiceUnavailable>([&] { store.store(account, second); }), locked);
        EXPECT_EQ(textOf<SecretServiceUnavailable>([&] { store.remove(account); }), locked);
        EXPECT_EQ(textOf<SecretServiceUnavailable>([&] { static_cast<void>(store.accounts()); }), locked);
    }
    keyring->end();
    keyring = startKeyring(*bus);
    EXPECT_EQ(store.read("A"), first);
    EXPECT_EQ(store.accounts(), Accounts{"A"});
}

TEST_F(SecretServiceStoreTest, AsksTheUserOnlyWhereAQuestionCanBeShown) {
    if (!std::filesystem::exists("/usr/lib/python3/dist-packages/dbusmock")) {
        GTEST_SKIP() << "python3-dbusmock is not installed";
    }
    bus->folder().write("keyring.py", promptingKeyring);
    const auto script = (bus->folder().path() / "keyring.py").string();
    SecretServiceStore asking(service, UnlockPrompt::allowed, patience);
    for (const std::string user : {"dismiss", "answer"}) {
        Helper keyringOfUser({"/usr/bin/python3", script, user});
        bus->waitForName(secretsName);
        EXPECT_THROW(static_cast<void>(store.read("A")), SecretServiceUnavailable) << "not asked";
        if (user == "answer") {
            EXPECT_EQ(asking.read("A"), VolumePassphrase("unlocked"));
        } else {
            EXPECT_THROW(static_cast<void>(asking.read("A")), SecretServiceUnavailable);
        }
    }
    test::Environment environment;
    EXPECT_EQ(unlockPromptHere(), UnlockPrompt::never);
    environment.set("WAYLAND_DISPLAY", "wayland-0");
    EXPECT_EQ(unlockPromptHere(), UnlockPrompt::allowed);
}

TEST_F(SecretServiceStoreTest, GivesUpOnWhatNeverAnswers) {
    if (!startKeyringOrSkip()) {
        GTEST_SKIP() << "gnome-keyring or libsecret-tools is not installed";
    }
    store.store("A", first);
    const auto silent = "The keyring did not answer in time. Unlock it or start it anew, then try again.";
    static_cast<void>(test::TraceRecorder::shared().take());
    keyring->signal(SIGSTOP);
    EXPECT_EQ(textOf<SecretServiceUnavailable>([&] { static_cast<void>(impatient.read("A")); }), silent);
    EXPECT_THAT(test::TraceRecorder::shared().take(), testing::StartsWith("keyring: it did not answer: "));
    EXPECT_EQ(textOf<SecretServiceUnavailable>([&] { impatient.store("B", second); }), silent);
    keyring->signal(SIGCONT);
    bus->daemon().signal(SIGSTOP);
    EXPECT_EQ(textOf<SecretServiceUnavailable>([&] { static_cast<void>(impatient.read("A")); }), silent);
    bus->daemon().signal(SIGCONT);
    EXPECT_EQ(store.read("A"), first);
}

TEST_F(SecretServiceStoreTest, TellsThatThereIsNoService) {
    EXPECT_THROW(static_cast<void>(store.read("A")), SecretServiceAbsent);
    EXPECT_THROW(store.store("A", first), SecretServiceAbsent);
    bus->daemon().end();
    EXPECT_THROW(static_cast<void>(store.accounts()), SecretServiceAbsent);
    test::Environment environment;
    environment.set("DBUS_SESSION_BUS_ADDRESS", std::nullopt);
    environment.set("XDG_RUNTIME_DIR", std::nullopt);
    EXPECT_THROW(store.remove("A"), SecretServiceAbsent);
}

} // namespace
} // namespace ramdisk
