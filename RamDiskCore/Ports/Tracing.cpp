#include "RamDiskCore/Ports/Tracing.h"

#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskCore/Values/ReasonText.h"

#include <fmt/format.h>

#include <exception>
#include <string>
#include <system_error>

namespace ramdisk {

namespace {

/// The name of the case, and the reason where it has one.
std::string textOf(const RamDiskError& error) {
    const auto words = wordsOf(error.caseName());
    const auto reason = reasonText(error);
    return reason == words ? words : fmt::format("{}: {}", words, reason);
}

std::string currentExceptionText() {
    try {
        throw;
    } catch (const RamDiskError& error) {
        return textOf(error);
    } catch (const std::exception& error) {
        return error.what();
    } catch (...) {
        return "an unknown error";
    }
}

} // namespace

void tracing::tellFormatted(TraceObserving& observer, std::string_view subject, fmt::string_view format,
                            fmt::format_args arguments) noexcept {
    const int before = errno;
    try {
        observer.note(subject, fmt::vformat(format, arguments));
    } catch (...) { // NOLINT(bugprone-empty-catch): what cannot even be told is told nowhere.
    }
    errno = before;
}

void tracing::tellCaught(TraceObserving& observer, std::string_view subject,
                         std::string_view consequence) noexcept {
    const int before = errno;
    try {
        observer.note(subject, fmt::format("{}: {}", consequence, currentExceptionText()));
    } catch (...) { // NOLINT(bugprone-empty-catch): what cannot even be told is told nowhere.
    }
    errno = before;
}

void tracing::tellRefused(TraceObserving& observer, std::string_view subject, std::string_view call,
                          std::string_view consequence, int error) noexcept {
    const int before = errno;
    try {
        observer.note(subject, fmt::format("{} is refused ({}); {}", call,
                                           std::generic_category().message(error), consequence));
    } catch (...) { // NOLINT(bugprone-empty-catch): what cannot even be told is told nowhere.
    }
    errno = before;
}

bool installTraceObserver(TraceObserving& observer) noexcept {
    TraceObserving* nobody = nullptr;
    return tracing::listener.compare_exchange_strong(nobody, &observer, std::memory_order_acq_rel);
}

} // namespace ramdisk
