#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

struct sd_bus;
struct sd_bus_message;

namespace ramdisk {

/// There is no bus: the library is not installed, or no bus runs for this user or machine.
class BusAbsent : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A call on a bus failed. The text is what the other side said.
class BusCallError : public std::runtime_error {
public:
    BusCallError(std::string name, const std::string& text)
        : std::runtime_error(text),
          name_(std::move(name)) {}

    /// Such as "org.freedesktop.DBus.Error.ServiceUnknown".
    [[nodiscard]] const std::string& name() const noexcept { return name_; }

    /// Whether there was no answer within the given time.
    [[nodiscard]] bool isSilence() const noexcept;

    /// Whether nobody has the name that was called, and nothing can be started that takes it.
    [[nodiscard]] bool isNobodyThere() const noexcept;

private:
    std::string name_;
};

/// One message, read from front to back; sd-bus's own functions fill and read it.
class BusMessage {
public:
    explicit BusMessage(sd_bus_message* owned) noexcept : message_(owned) {}
    BusMessage(BusMessage&& other) noexcept : message_(std::exchange(other.message_, nullptr)) {}
    BusMessage(const BusMessage&) = delete;
    BusMessage& operator=(const BusMessage&) = delete;
    BusMessage& operator=(BusMessage&&) = delete;
    ~BusMessage();

    [[nodiscard]] sd_bus_message* get() const noexcept { return message_; }

    /// @throws BusCallError when the message does not contain this.
    [[nodiscard]] std::string readText();
    [[nodiscard]] std::string readPath();
    [[nodiscard]] bool readFlag();
    [[nodiscard]] std::uint64_t readNumber();
    /// Calls `element` for each element of the list. `contents` is the type of an element.
    void readList(const char* contents, const std::function<void()>& element);
    void enter(char type, const char* contents);
    void leave();

private:
    sd_bus_message* message_;
};

/// A connection to a message bus, by libsystemd. The library is loaded when the first connection is opened,
/// so a program that needs no bus starts without it. Used by one thread at a time.
class MessageBus {
public:
    enum class Kind { session, system };
    using Clock = std::chrono::steady_clock;

    /// @throws BusAbsent
    /// @throws BusCallError when the bus exists but refuses, or does not answer before `deadline`.
    MessageBus(Kind kind, Clock::time_point deadline);

    struct Method {
        const char* service;
        std::string path;
        const char* interface;
        const char* member;
    };
    /// Fills in a call's arguments.
    using Arguments = std::function<void(sd_bus_message*)>;

    /// Whether the memory of messages is overwritten when they go.
    enum class Holds { nothingSecret, secret };

    /// @throws BusCallError
    [[nodiscard]] BusMessage call(const Method& method, Clock::time_point deadline,
                                  const Arguments& arguments = nullptr, Holds holds = Holds::nothingSecret);

    /// A property; the message is positioned at its value. @throws BusCallError
    [[nodiscard]] BusMessage property(const char* service, const std::string& path, const char* interface,
                                      const char* name, const char* type, Clock::time_point deadline);

    /// Subscribes to the signals that the rule describes. @throws BusCallError
    void listen(const std::string& rule, Clock::time_point deadline);

    /// The next message that is no answer to a call, mostly a signal. Waits until the deadline, or until
    /// `wake`, a descriptor or -1, becomes readable. Then returns null.
    /// @throws BusCallError when the connection has broken.
    [[nodiscard]] std::unique_ptr<BusMessage> next(Clock::time_point deadline, int wake = -1);

private:
    struct Closer {
        void operator()(sd_bus* bus) const noexcept;
    };
    std::unique_ptr<sd_bus, Closer> bus_;
};

} // namespace ramdisk
