#include "tests/support/Linux/PrivateBus.h"

#include "RamDiskInfrastructure/Linux/Bus/MessageBus.h"
#include "RamDiskInfrastructure/Linux/Bus/SdBus.h"

namespace ramdisk::test {

namespace {

constexpr std::chrono::seconds patience{30};

/// Calls `done` until it is true. @throws std::runtime_error when that takes too long.
template <typename Condition>
void waitUntil(const std::string& what, Condition done) {
    const auto deadline = MessageBus::Clock::now() + patience;
    while (!done()) {
        if (MessageBus::Clock::now() > deadline) {
            throw std::runtime_error("waited in vain for " + what);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

} // namespace

PrivateBus::PrivateBus() {
    const auto path = folder_.path().string();
    const auto address = "unix:path=" + path + "/bus";
    folder_.write("bus.conf", "<busconfig><type>session</type><listen>" + address
                                  + "</listen><policy context=\"default\"><allow send_destination=\"*\" "
                                    "eavesdrop=\"true\"/><allow eavesdrop=\"true\"/><allow own=\"*\"/>"
                                    "</policy></busconfig>");
    for (const char* name :
         {"HOME", "XDG_DATA_HOME", "XDG_CONFIG_HOME", "XDG_CACHE_HOME", "XDG_RUNTIME_DIR"}) {
        environment_.set(name, path);
    }
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "GNOME_KEYRING_CONTROL"}) {
        environment_.set(name, std::nullopt);
    }
    environment_.set("DBUS_SESSION_BUS_ADDRESS", address);
    environment_.set("DBUS_SYSTEM_BUS_ADDRESS", address);
    daemon_ = std::make_unique<Helper>(
        std::vector<std::string>{"dbus-daemon", "--nofork", "--config-file=" + path + "/bus.conf"});
    waitUntil("the message bus", [] {
        try {
            MessageBus(MessageBus::Kind::session, MessageBus::Clock::now() + patience);
            return true;
        } catch (const BusAbsent&) {
            return false;
        }
    });
}

void PrivateBus::waitForName(const std::string& name) const {
    MessageBus bus(MessageBus::Kind::session, MessageBus::Clock::now() + patience);
    waitUntil(name, [&] {
        return bus
            .call({"org.freedesktop.DBus", "/", "org.freedesktop.DBus", "NameHasOwner"},
                  MessageBus::Clock::now() + patience,
                  [&name](sd_bus_message* message) {
                      requireBus(sdBus().sd_bus_message_append(message, "s", name.c_str()));
                  })
            .readFlag();
    });
}

bool PrivateBus::has(const std::string& program) {
    return access(("/usr/bin/" + program).c_str(), X_OK) == 0;
}

} // namespace ramdisk::test
