#include "tramdisk/SessionSignals.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace ramdisk::cli {

namespace {

constexpr std::array caught{SIGTERM, SIGINT, SIGHUP};

// A signal handler can reach nothing else.
std::array<int, 2> wakeUp{-1, -1};

constexpr char endByte = 1;
constexpr char mountsByte = 2;

void wake(char byte) {
    const int before = errno;
    static_cast<void>(::write(wakeUp[1], &byte, 1));
    errno = before;
}

void noteSignal(int /*signal*/) {
    wake(endByte);
}

} // namespace

SessionSignals::SessionSignals() {
    if (pipe(wakeUp.data()) != 0) {
        throw std::system_error(errno, std::generic_category(), "make a pipe for signals");
    }
    for (const int end : wakeUp) {
        static_cast<void>(fcntl(end, F_SETFD, FD_CLOEXEC));
        static_cast<void>(fcntl(end, F_SETFL, O_NONBLOCK));
    }
    struct sigaction action {};
    action.sa_handler = noteSignal;
    action.sa_flags = SA_RESTART;
    for (const int signal : caught) {
        struct sigaction former {};
        static_cast<void>(sigaction(signal, nullptr, &former));
        // Whoever started us with nohup, or in the background of a script, wants us to go on.
        if (signal == SIGTERM || former.sa_handler != SIG_IGN) {
            static_cast<void>(sigaction(signal, &action, nullptr));
        }
    }
}

SessionSignals::~SessionSignals() {
    for (const int signal : caught) {
        struct sigaction current {};
        if (sigaction(signal, nullptr, &current) == 0 && current.sa_handler == noteSignal) {
            static_cast<void>(std::signal(signal, SIG_DFL));
        }
    }
    for (int& end : wakeUp) {
        close(end);
        end = -1;
    }
}

SessionEvent SessionSignals::wait(std::chrono::milliseconds limit) {
    pollfd readable{wakeUp[0], POLLIN, 0};
    if (poll(&readable, 1, static_cast<int>(limit.count())) <= 0) {
        return SessionEvent::timePassed;
    }
    std::array<char, 16> bytes{};
    const auto count = read(wakeUp[0], bytes.data(), bytes.size());
    auto* const last = bytes.data() + (count > 0 ? count : 0);
    return std::find(bytes.data(), last, endByte) != last ? SessionEvent::endRequested
                                                          : SessionEvent::mountsChanged;
}

void SessionSignals::request() noexcept {
    wake(endByte);
}

void SessionSignals::noteMounts() noexcept {
    wake(mountsByte);
}

} // namespace ramdisk::cli
