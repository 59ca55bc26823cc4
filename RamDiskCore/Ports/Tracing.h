#pragma once

#include <fmt/core.h>

#include <atomic>
#include <cerrno>
#include <concepts>
#include <string_view>

namespace ramdisk {

/// Hears why the program acts as it does: what it repaired, which way it took, and what it passed over.
///
/// Called from any thread, also from several at once, and also while an error is being handled.
class TraceObserving {
public:
    TraceObserving() = default;
    TraceObserving(const TraceObserving&) = delete;
    TraceObserving& operator=(const TraceObserving&) = delete;
    virtual ~TraceObserving() = default;

    /// `subject` is one word for the part that tells, such as "records". `text` is for people, without an
    /// end of line of its own; names in it are others' choice and may hold any byte. Never holds a secret.
    virtual void note(std::string_view subject, std::string_view text) noexcept = 0;
};

namespace tracing {

/// The one listener of this process; nobody, unless `main` found one.
inline std::atomic<TraceObserving*> listener{nullptr};

[[nodiscard]] inline TraceObserving* currentListener() noexcept {
    return listener.load(std::memory_order_acquire);
}

void tellFormatted(TraceObserving& observer, std::string_view subject, fmt::string_view format,
                   fmt::format_args arguments) noexcept;
void tellCaught(TraceObserving& observer, std::string_view subject, std::string_view consequence) noexcept;
void tellRefused(TraceObserving& observer, std::string_view subject, std::string_view call,
                 std::string_view consequence, int error) noexcept;

} // namespace tracing

/// Has everything that this process traces reach `observer`, which must live as long as the process does. Can
/// be done once, by `main` before anything else runs.
/// @returns false when somebody listens already; nothing is changed then.
bool installTraceObserver(TraceObserving& observer) noexcept;

/// Tells the listener, if there is one. Without one it costs a load: nothing is formatted. Keeps `errno`, so
/// that it can stand between a call and the look at its error.
///
/// Passphrases, keys, contents of files and the input of children must never be among the arguments.
template <typename... Arguments>
void trace(std::string_view subject, fmt::format_string<Arguments...> format,
           Arguments&&... arguments) noexcept {
    if (auto* const observer = tracing::currentListener()) {
        tracing::tellFormatted(*observer, subject, format, fmt::make_format_args(arguments...));
    }
}

/// As above for a text that takes work to make: `makeText` is called only when somebody listens.
template <std::invocable MakeText>
void trace(std::string_view subject, const MakeText& makeText) noexcept {
    if (auto* const observer = tracing::currentListener()) {
        const int before = errno;
        try {
            observer->note(subject, makeText());
        } catch (...) { // NOLINT(bugprone-empty-catch): what cannot even be told is told nowhere.
        }
        errno = before;
    }
}

/// Tells of the exception that is being handled and not passed on: what became of it, and what it says.
inline void traceCaught(std::string_view subject, std::string_view consequence) noexcept {
    if (auto* const observer = tracing::currentListener()) {
        tracing::tellCaught(*observer, subject, consequence);
    }
}

/// Tells that the system refused `call`, with what `errno`, and what is done without it.
inline void traceRefused(std::string_view subject, std::string_view call, std::string_view consequence,
                         int error = errno) noexcept {
    if (auto* const observer = tracing::currentListener()) {
        tracing::tellRefused(*observer, subject, call, consequence, error);
    }
}

} // namespace ramdisk
