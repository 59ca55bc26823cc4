#include "RamDiskInfrastructure/Linux/Bus/LogindShutdownDelay.h"

#include "RamDiskInfrastructure/Linux/Bus/MessageBus.h"
#include "RamDiskInfrastructure/Linux/Bus/SdBus.h"
#include "tests/support/Linux/PrivateBus.h"

namespace ramdisk::test {
namespace {

constexpr std::chrono::seconds logindPatience{30};
constexpr const char* logind = "org.freedesktop.login1";
constexpr const char* manager = "org.freedesktop.login1.Manager";

class LogindShutdownDelayTest : public testing::Test {
protected:
    void SetUp() override {
        if (!PrivateBus::has("dbus-daemon")
            || !std::filesystem::exists("/usr/lib/python3/dist-packages/dbusmock")) {
            GTEST_SKIP() << "dbus-daemon or python3-dbusmock is not installed";
        }
        bus = std::make_unique<PrivateBus>();
    }

    static MessageBus::Clock::time_point deadline() { return MessageBus::Clock::now() + logindPatience; }

    BusMessage ask(const char* interface, const char* member,
                   const MessageBus::Arguments& arguments = nullptr) {
        return connection->call({logind, "/org/freedesktop/login1", interface, member}, deadline(),
                                arguments);
    }

    void startLogind() {
        mock = std::make_unique<Helper>(std::vector<std::string>{"/usr/bin/python3", "-m", "dbusmock",
                                                                 "--system", "--template", "logind"});
        bus->waitForName(logind);
        connection = std::make_unique<MessageBus>(MessageBus::Kind::system, deadline());
        static_cast<void>(ask("org.freedesktop.DBus.Mock", "AddProperty", [](sd_bus_message* message) {
            requireBus(sdBus().sd_bus_message_append(message, "ssv", manager, "InhibitDelayMaxUSec", "t",
                                                     std::uint64_t{7'000'000}));
        }));
    }

    std::vector<std::string> locks() {
        auto reply = ask(manager, "ListInhibitors");
        std::vector<std::string> locks;
        reply.readList("(ssssuu)", [&] {
            reply.enter('r', "ssssuu");
            std::string lock;
            for (int field = 0; field < 4; ++field) {
                lock += reply.readText() + "|";
            }
            requireBus(sdBus().sd_bus_message_skip(reply.get(), "uu"));
            reply.leave();
            locks.push_back(lock);
        });
        return locks;
    }

    /// logind sees that a lock was closed a moment later.
    bool hasLocks(std::size_t count) {
        const auto until = deadline();
        while (locks().size() != count) {
            if (MessageBus::Clock::now() > until) {
                return false;
            }
        }
        return true;
    }

    void announce(bool begins) {
        static_cast<void>(ask("org.freedesktop.DBus.Mock", "EmitSignal", [begins](sd_bus_message* message) {
            requireBus(sdBus().sd_bus_message_append(message, "sssav", manager, "PrepareForShutdown", "b", 1,
                                                     "b", begins ? 1 : 0));
        }));
    }

    std::unique_ptr<PrivateBus> bus;
    std::unique_ptr<Helper> mock;
    std::unique_ptr<MessageBus> connection;
    std::promise<void> begun;
    std::promise<void> calledOff;
    const ShutdownDelaying::Listener listener = [this](ShutdownNotice notice) {
        (notice == ShutdownNotice::begun ? begun : calledOff).set_value();
    };
};

TEST_F(LogindShutdownDelayTest, HoldsUpEachShutdownUntilReleased) {
    startLogind();
    LogindShutdownDelay delay(logindPatience);
    EXPECT_EQ(delay.start(listener), ShutdownDelay(ShutdownDelayed{std::chrono::seconds(7)}));
    EXPECT_EQ(locks(),
              std::vector<std::string>{"shutdown|Tavrin RamDisk|Saving the files of RAM disks|delay|"});
    announce(true);
    EXPECT_EQ(begun.get_future().wait_for(logindPatience), std::future_status::ready);
    EXPECT_EQ(locks().size(), 1U);
    delay.release();
    EXPECT_TRUE(hasLocks(0));
    announce(false);
    EXPECT_EQ(calledOff.get_future().wait_for(logindPatience), std::future_status::ready);
    EXPECT_TRUE(hasLocks(1)) << "the next shutdown is held up again";
    delay.stop();
    EXPECT_TRUE(hasLocks(0));

    LogindShutdownDelay forgotten(logindPatience);
    static_cast<void>(forgotten.start(listener));
    EXPECT_TRUE(hasLocks(1));
    bus->daemon().end();
    // A listener whose bus has gone still ends when it is told to.
}

TEST_F(LogindShutdownDelayTest, DoesWithoutLogindAndWithoutABus) {
    for (const bool hasBus : {true, false}) {
        if (!hasBus) {
            bus->daemon().end();
        }
        LogindShutdownDelay delay(logindPatience);
        const auto outcome = delay.start(listener);
        const auto* const without = std::get_if<ShutdownNotDelayed>(&outcome);
        ASSERT_NE(without, nullptr);
        EXPECT_TRUE(without->reason.starts_with(
            "A shutdown does not wait until files are saved, since logind does not serve here: "))
            << without->reason;
        delay.release();
        delay.stop();
    }
}

} // namespace
} // namespace ramdisk::test
