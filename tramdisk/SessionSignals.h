#pragma once

#include <chrono>

namespace ramdisk::cli {

/// What ended a wait.
enum class SessionEvent { timePassed, mountsChanged, endRequested };

/// Turns SIGTERM, SIGINT and SIGHUP, and a shutdown of the machine, into something that can be waited for.
/// One object at a time; it gives the signals back at its end.
class SessionSignals {
public:
    /// @throws std::system_error
    SessionSignals();
    SessionSignals(const SessionSignals&) = delete;
    SessionSignals& operator=(const SessionSignals&) = delete;
    ~SessionSignals();

    /// Waits for the next request to end, at most for `limit`.
    [[nodiscard]] SessionEvent wait(std::chrono::milliseconds limit);

    /// As if a signal had come. Callable from any thread.
    static void request() noexcept;

    /// Wakes the wait because something was mounted or unmounted. Callable from any thread.
    static void noteMounts() noexcept;
};

} // namespace ramdisk::cli
