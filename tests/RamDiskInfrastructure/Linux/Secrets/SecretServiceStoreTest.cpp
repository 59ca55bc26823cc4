#include "RamDiskInfrastructure/Linux/Secrets/SecretServiceStore.h"

#include "RamDiskInfrastructure/Commands/ProcessCommandRunner.h"
#include "RamDiskInfrastructure/Linux/Bus/MessageBus.h"
#include "RamDiskInfrastructure/Linux/Bus/SdBus.h"
#include "RamDiskInfrastructure/Linux/Secrets/LinuxSecretStore.h"
#include "tests/support/FakeUserDefaults.h"
#include "tests/support/Linux/PrivateBus.h"
#include "tests/support/SecretStoreContract.h"
#include "tests/support/TraceRecorder.h"

namespace ramdisk::test {
namespace {

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

/// Locks the default keyring, as its owner does.
void lockKeyring() {
    const auto deadline = MessageBus::Clock::now() + patience;
    MessageBus bus(MessageBus::Kind::session, deadline);
    static_cast<void>(
        bus.call({secretsName, "/org/freedesktop/secrets", "org.freedesktop.Secret.Service", "Lock"},
                 deadline, [](sd_bus_message* message) {
                     requireBus(sdBus().sd_bus_message_append(message, "ao", 1,
                                                              "/org/freedesktop/secrets/aliases/default"));
                 }));
}

class SecretServiceStoreTest : public testing::Test {
protected:
    void SetUp() override {
        if (!PrivateBus::has("dbus-daemon") || !PrivateBus::has("gnome-keyring-daemon")
            || !PrivateBus::has("secret-tool")
            || !std::filesystem::exists("/usr/lib/python3/dist-packages/dbusmock")) {
            GTEST_SKIP()
                << "dbus-daemon, gnome-keyring, libsecret-tools or python3-dbusmock is not installed";
        }
        bus = std::make_unique<PrivateBus>();
    }

    void startKeyring() {
        keyring = std::make_unique<Helper>(std::vector<std::string>{"gnome-keyring-daemon", "--foreground",
                                                                    "--components=secrets", "--unlock"},
                                           "open sesame");
        bus->waitForName(secretsName);
    }

    std::unique_ptr<PrivateBus> bus;
    std::unique_ptr<Helper> keyring;
    SecretServiceStore store{service, UnlockPrompt::never, patience};
    const VolumePassphrase first{"first passphrase"};
    const VolumePassphrase second{"second, with \xE2\x80\x9Cquotes\xE2\x80\x9D and\nlines"};
};

TEST_F(SecretServiceStoreTest, KeepsSecretsAsOtherProgramsSeeThemAndAfterTheKeyringWasKilled) {
    startKeyring();
    SecretServiceStore other("com.example.Other", UnlockPrompt::never, patience);
    expectKeepsSecrets(store, other);
    store.store("A", first);
    store.store("A", second);
    const auto secretTool = [](std::vector<std::string> arguments) {
        arguments.insert(arguments.end(), {"service", service, "account", "A"});
        return ProcessCommandRunner().run({"/usr/bin/secret-tool", std::move(arguments), {}, {}});
    };
    const auto found = secretTool({"search", "--all"});
    const auto text = found.standardOutput + found.standardError;
    EXPECT_NE(text.find("label = RamDisk saved contents\n"), std::string::npos) << text;
    EXPECT_EQ(text.find("label"), text.rfind("label")) << "updated in place, not added";
    EXPECT_EQ(secretTool({"lookup"}).standardOutput, second.value());
    keyring->end();
    startKeyring();
    EXPECT_EQ(store.read("A"), second);
}

TEST_F(SecretServiceStoreTest, NeverTakesALockedKeyringForAnEmptyOne) {
    startKeyring();
    store.store("A", first);
    lockKeyring();
    for (const auto* const account : {"A", "never stored"}) {
        EXPECT_THAT(refusals<SecretServiceUnavailable>(store, account),
                    Each("The keyring is locked. Unlock it, then try again."));
    }
    keyring->end();
    startKeyring();
    EXPECT_EQ(store.read("A"), first);
    EXPECT_EQ(store.accounts(), Accounts{"A"});
}

TEST_F(SecretServiceStoreTest, AsksTheUserOnlyWhereAQuestionCanBeShown) {
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
    Environment environment;
    EXPECT_EQ(unlockPromptHere(), UnlockPrompt::never);
    environment.set("WAYLAND_DISPLAY", "wayland-0");
    EXPECT_EQ(unlockPromptHere(), UnlockPrompt::allowed);
}

TEST_F(SecretServiceStoreTest, GivesUpOnWhatNeverAnswers) {
    startKeyring();
    store.store("A", first);
    SecretServiceStore impatient(service, UnlockPrompt::never, impatience);
    for (Helper* const stopped : {keyring.get(), &bus->daemon()}) {
        static_cast<void>(TraceRecorder::shared().take());
        stopped->signal(SIGSTOP);
        EXPECT_THAT(refusals<SecretServiceUnavailable>(impatient),
                    Each("The keyring did not answer in time. Unlock it or start it anew, then try again."));
        EXPECT_THAT(TraceRecorder::shared().take(), testing::StartsWith("keyring: it did not answer: "));
        stopped->signal(SIGCONT);
    }
    EXPECT_NO_THROW(static_cast<void>(store.read("A")));
}

TEST_F(SecretServiceStoreTest, TellsThatThereIsNoService) {
    const auto expectAbsence = [&] {
        EXPECT_THAT(refusals<SecretServiceAbsent>(store), Each(testing::Ne("nothing was refused")));
    };
    expectAbsence();
    bus->daemon().end();
    expectAbsence();
    Environment environment;
    environment.set("DBUS_SESSION_BUS_ADDRESS", std::nullopt);
    environment.set("XDG_RUNTIME_DIR", std::nullopt);
    expectAbsence();
}

/// The keyring where one runs, key files where none does.
class LinuxSecretStoreTest : public SecretServiceStoreTest {
protected:
    void allow(bool isAllowed) {
        settings->stored.insert_or_assign("allowsKeyFile", DefaultsValue{isAllowed});
    }

    ScratchFolder folder;
    std::shared_ptr<FakeUserDefaults> settings = std::make_shared<FakeUserDefaults>();
    LinuxSecretStore both{std::make_unique<SecretServiceStore>(service, UnlockPrompt::never, patience),
                          folder.path(), settings};
    KeyFileStore files{folder.path()};
};

TEST_F(LinuxSecretStoreTest, UsesAFileOnlyWhereNoServiceAnswersAndTheUserAllowsIt) {
    const auto refused = refusals<SecretServiceAbsent>(both);
    for (const auto operation : {0U, 1U, 3U}) {
        EXPECT_EQ(refused[operation],
                  "No keyring runs here to keep the key in. To keep it in a file that only "
                  "you can read, run `tramdisk settings set allowsKeyFile true`.");
    }
    EXPECT_EQ(folder.names(), std::set<std::string>{});
    allow(true);
    const ScratchFolder elsewhere;
    KeyFileStore other(elsewhere.path());
    expectKeepsSecrets(both, other);
    both.store("A", first);
    allow(false);
    EXPECT_EQ(both.read("A"), first);
    EXPECT_THROW(both.store("A", second), SecretServiceAbsent);

    allow(true);
    startKeyring();
    lockKeyring();
    EXPECT_THAT(refusals<SecretServiceUnavailable>(both),
                Each("The keyring is locked. Unlock it, then try again."));
    EXPECT_EQ(files.read("A"), first);
}

TEST_F(LinuxSecretStoreTest, MovesToTheKeyringAndKnowsWithoutItWhatItHolds) {
    allow(true);
    both.store("A", first);
    both.store("B", first);
    startKeyring();
    EXPECT_EQ(both.read("A"), first);
    both.store("A", second);
    EXPECT_EQ(files.read("A"), std::nullopt);
    EXPECT_EQ(both.read("A"), second);
    EXPECT_EQ(both.accounts(), (Accounts{"A", "B"}));

    keyring->end();
    EXPECT_THAT(refusals<SecretServiceUnavailable>(both),
                Each(testing::StartsWith("The key is in the keyring, and no keyring runs here.")));
    EXPECT_EQ(both.read("B"), first);

    startKeyring();
    EXPECT_EQ(both.read("A"), second);
    both.remove("A");
    keyring->end();
    EXPECT_EQ(both.read("A"), std::nullopt);
    EXPECT_EQ(both.accounts(), Accounts{"B"});
}

} // namespace
} // namespace ramdisk::test
