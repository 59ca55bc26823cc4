#include "RamDiskInfrastructure/Linux/Bus/MessageBus.h"

#include "RamDiskInfrastructure/Linux/Bus/SdBus.h"

#include <algorithm>
#include <array>

#include <poll.h>

namespace ramdisk {

namespace {

constexpr const char* busName = "org.freedesktop.DBus";

/// Zero would mean the library's own 25 seconds.
std::uint64_t microsecondsUntil(MessageBus::Clock::time_point deadline) {
    const auto left = std::chrono::ceil<std::chrono::microseconds>(deadline - MessageBus::Clock::now());
    return static_cast<std::uint64_t>(std::max<std::int64_t>(left.count(), 1));
}

MessageBus::Clock::time_point wakeTime(sd_bus* bus, MessageBus::Clock::time_point deadline) {
    std::uint64_t due = UINT64_MAX; // In microseconds of the same clock; the greatest for never.
    requireBus(sdBus().sd_bus_get_timeout(bus, &due));
    const auto latest = std::chrono::floor<std::chrono::microseconds>(deadline.time_since_epoch()).count();
    return std::cmp_less(due, latest)
               ? MessageBus::Clock::time_point(std::chrono::microseconds(static_cast<std::int64_t>(due)))
               : deadline;
}

/// Waits until the bus has something to do, `wake` is readable (true), or the deadline has come.
bool waitForBus(sd_bus* bus, MessageBus::Clock::time_point deadline, int wake) {
    const auto until = wakeTime(bus, deadline);
    const int events = sdBus().sd_bus_get_events(bus);
    requireBus(events);
    std::array<pollfd, 2> descriptors{
        {{sdBus().sd_bus_get_fd(bus), static_cast<short>(events), 0}, {wake, POLLIN, 0}}};
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - MessageBus::Clock::now()).count();
    const int timeout = static_cast<int>(std::clamp<std::int64_t>(left, 0, 3'600'000));
    if (poll(descriptors.data(), descriptors.size(), timeout) < 0 && errno != EINTR) {
        requireBus(-errno);
    }
    return descriptors[1].revents != 0;
}

bool isAbsence(int error) {
    return error == ENOMEDIUM || error == ENOENT || error == ECONNREFUSED;
}

} // namespace

bool BusCallError::isSilence() const noexcept {
    return name_ == "org.freedesktop.DBus.Error.NoReply" || name_ == "org.freedesktop.DBus.Error.Timeout"
           || name_ == "org.freedesktop.DBus.Error.TimedOut";
}

bool BusCallError::isNobodyThere() const noexcept {
    return name_ == "org.freedesktop.DBus.Error.ServiceUnknown"
           || name_ == "org.freedesktop.DBus.Error.NameHasNoOwner"
           || name_ == "org.freedesktop.DBus.Error.Spawn.ServiceNotFound";
}

BusMessage::~BusMessage() {
    if (message_ != nullptr) {
        sdBus().sd_bus_message_unref(message_);
    }
}

namespace {

/// A basic value; the end of the message in its place is an error as well.
template <typename Value>
Value readBasic(sd_bus_message* message, char type) {
    Value value{};
    const int result = sdBus().sd_bus_message_read_basic(message, type, &value);
    requireBus(result == 0 ? -EBADMSG : result);
    return value;
}

} // namespace

std::string BusMessage::readText() {
    return readBasic<const char*>(message_, 's');
}

std::string BusMessage::readPath() {
    return readBasic<const char*>(message_, 'o');
}

bool BusMessage::readFlag() {
    return readBasic<int>(message_, 'b') != 0;
}

std::uint64_t BusMessage::readNumber() {
    return readBasic<std::uint64_t>(message_, 't');
}

void BusMessage::enter(char type, const char* contents) {
    const int result = sdBus().sd_bus_message_enter_container(message_, type, contents);
    requireBus(result == 0 ? -EBADMSG : result);
}

void BusMessage::leave() {
    requireBus(sdBus().sd_bus_message_exit_container(message_));
}

void BusMessage::readList(const char* contents, const std::function<void()>& element) {
    enter('a', contents);
    for (;;) {
        const int atEnd = sdBus().sd_bus_message_at_end(message_, 0);
        requireBus(atEnd);
        if (atEnd != 0) {
            break;
        }
        element();
    }
    leave();
}

void MessageBus::Closer::operator()(sd_bus* bus) const noexcept {
    sdBus().sd_bus_close_unref(bus);
}

MessageBus::MessageBus(Kind kind, Clock::time_point deadline) {
    const auto& library = sdBus();
    sd_bus* opened = nullptr;
    const int result =
        kind == Kind::session ? library.sd_bus_open_user(&opened) : library.sd_bus_open_system(&opened);
    if (isAbsence(-result)) {
        throw BusAbsent(kind == Kind::session ? "No message bus runs for this user."
                                              : "No system message bus runs here.");
    }
    requireBus(result);
    bus_.reset(opened);
    // By hand, since a call would wait for the greeting as long as the library likes.
    for (;;) {
        const int ready = library.sd_bus_is_ready(opened);
        requireBus(ready);
        if (ready != 0) {
            return;
        }
        const int progress = library.sd_bus_process(opened, nullptr);
        requireBus(progress);
        if (progress == 0) {
            requireBus(Clock::now() >= deadline ? -ETIMEDOUT : 0);
            waitForBus(opened, deadline, -1);
        }
    }
}

BusMessage MessageBus::call(const Method& method, Clock::time_point deadline, const Arguments& arguments,
                            Holds holds) {
    const auto& library = sdBus();
    sd_bus_message* made = nullptr;
    requireBus(library.sd_bus_message_new_method_call(bus_.get(), &made, method.service, method.path.c_str(),
                                                      method.interface, method.member));
    const BusMessage request(made);
    if (holds == Holds::secret) {
        requireBus(library.sd_bus_message_sensitive(made));
    }
    if (arguments) {
        arguments(made);
    }
    sd_bus_error error = SD_BUS_ERROR_NULL;
    sd_bus_message* reply = nullptr;
    const int result = library.sd_bus_call(bus_.get(), made, microsecondsUntil(deadline), &error, &reply);
    if (result < 0 && error.name != nullptr) {
        const BusCallError failure(error.name, error.message == nullptr ? "" : error.message);
        library.sd_bus_error_free(&error);
        throw failure;
    }
    requireBus(result);
    BusMessage answer(reply);
    if (holds == Holds::secret) {
        requireBus(library.sd_bus_message_sensitive(reply));
    }
    return answer;
}

BusMessage MessageBus::property(const char* service, const std::string& path, const char* interface,
                                const char* name, const char* type, Clock::time_point deadline) {
    auto reply = call({service, path, "org.freedesktop.DBus.Properties", "Get"}, deadline,
                      [interface, name](sd_bus_message* message) {
                          requireBus(sdBus().sd_bus_message_append(message, "ss", interface, name));
                      });
    reply.enter('v', type);
    return reply;
}

void MessageBus::listen(const std::string& rule, Clock::time_point deadline) {
    static_cast<void>(call({busName, "/org/freedesktop/DBus", busName, "AddMatch"}, deadline,
                           [&rule](sd_bus_message* message) {
                               requireBus(sdBus().sd_bus_message_append(message, "s", rule.c_str()));
                           }));
}

std::unique_ptr<BusMessage> MessageBus::next(Clock::time_point deadline, int wake) {
    for (;;) {
        sd_bus_message* received = nullptr;
        const int progress = sdBus().sd_bus_process(bus_.get(), &received);
        requireBus(progress);
        if (received != nullptr) {
            return std::make_unique<BusMessage>(received);
        }
        if (progress == 0 && (Clock::now() >= deadline || waitForBus(bus_.get(), deadline, wake))) {
            return nullptr;
        }
    }
}

} // namespace ramdisk
