#include "RamDiskInfrastructure/Linux/Bus/LogindShutdownDelay.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/Linux/Bus/MessageBus.h"
#include "RamDiskInfrastructure/Linux/Bus/SdBus.h"

#include <utility>

#include <fcntl.h>
#include <sys/eventfd.h>

namespace ramdisk {

namespace {

constexpr const char* service = "org.freedesktop.login1";
constexpr const char* path = "/org/freedesktop/login1";
constexpr const char* manager = "org.freedesktop.login1.Manager";
constexpr const char* announcement = "PrepareForShutdown";

} // namespace

LogindShutdownDelay::LogindShutdownDelay(std::chrono::milliseconds limit) : limit_(limit) {}

LogindShutdownDelay::~LogindShutdownDelay() {
    stop();
}

ShutdownDelay LogindShutdownDelay::start(Listener listener) {
    listener_ = std::move(listener);
    try {
        const auto deadline = MessageBus::Clock::now() + limit_;
        bus_ = std::make_unique<MessageBus>(MessageBus::Kind::system, deadline);
        // Before the lock is taken, so that no shutdown begins unheard in between.
        bus_->listen(std::string("type='signal',sender='") + service + "',path='" + path + "',interface='"
                         + manager + "',member='" + announcement + "'",
                     deadline);
        takeLock();
        const auto most =
            bus_->property(service, path, manager, "InhibitDelayMaxUSec", "t", deadline).readNumber();
        wake_.reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
        if (!wake_) {
            throw SystemCallError("make an event descriptor");
        }
        thread_ = std::thread([this] { listen(); });
        return ShutdownDelayed{std::chrono::microseconds(most)};
    } catch (const std::exception& error) {
        release();
        bus_.reset();
        return ShutdownNotDelayed{
            std::string("A shutdown does not wait until files are saved, since logind does not serve here: ")
            + error.what()};
    }
}

void LogindShutdownDelay::takeLock() {
    auto reply = bus_->call(
        {service, path, manager, "Inhibit"}, MessageBus::Clock::now() + limit_, [](sd_bus_message* message) {
            requireBus(sdBus().sd_bus_message_append(message, "ssss", "shutdown", "Tavrin RamDisk",
                                                     "Saving the files of RAM disks", "delay"));
        });
    int descriptor = -1; // The message's own.
    requireBus(sdBus().sd_bus_message_read_basic(reply.get(), 'h', &descriptor));
    FileDescriptor lock(fcntl(descriptor, F_DUPFD_CLOEXEC, 0));
    if (!lock) {
        throw SystemCallError("keep the shutdown lock");
    }
    const std::lock_guard guard(mutex_);
    lock_ = std::move(lock);
}

void LogindShutdownDelay::release() noexcept {
    const std::lock_guard guard(mutex_);
    lock_.reset();
}

void LogindShutdownDelay::stop() noexcept {
    if (thread_.joinable()) {
        // Cannot fail: the counter of an event descriptor is far from full.
        static_cast<void>(eventfd_write(wake_.get(), 1));
        thread_.join();
    }
    release();
    bus_.reset();
}

void LogindShutdownDelay::listen() noexcept {
    try {
        while (const auto message = bus_->next(MessageBus::Clock::time_point::max(), wake_.get())) {
            // What is addressed to us alone comes from anybody; logind tells everyone.
            if (sdBus().sd_bus_message_is_signal(message->get(), manager, announcement) > 0
                && sdBus().sd_bus_message_get_destination(message->get()) == nullptr) {
                heed(message->readFlag());
            }
        }
    } catch (const std::exception&) {
        // The bus is gone, as it is late in a shutdown; the lock holds without it.
        traceCaught("shutdown", "the bus is listened to no more");
    }
}

void LogindShutdownDelay::heed(bool begins) {
    if (!begins) {
        const bool wasReleased = [this] {
            const std::lock_guard guard(mutex_);
            return !lock_;
        }();
        if (wasReleased) {
            takeLock();
        }
    }
    listener_(begins ? ShutdownNotice::begun : ShutdownNotice::calledOff);
}

} // namespace ramdisk
