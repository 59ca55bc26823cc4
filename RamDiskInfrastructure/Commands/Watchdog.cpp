#include "RamDiskInfrastructure/Commands/Watchdog.h"

#include <csignal>

namespace ramdisk {

Watchdog::Watchdog(std::optional<double> seconds, TimePoint start) {
    if (!seconds) {
        return;
    }
    if (!(*seconds > 0)) {
        limit_ = start;
        return;
    }
    const std::chrono::duration<double> range = TimePoint::max() - start;
    // Half of the range, since a double cannot tell apart the last steps before its end.
    if (*seconds < range.count() / 2) {
        limit_ = start + std::chrono::ceil<Clock::duration>(std::chrono::duration<double>(*seconds));
    }
}

std::optional<Watchdog::TimePoint> Watchdog::nextDeadline() const noexcept {
    if (isStopped_) {
        return std::nullopt;
    }
    return didFire_ ? killTime_ : limit_;
}

std::optional<int> Watchdog::takeDueSignal(TimePoint now) noexcept {
    const auto deadline = nextDeadline();
    if (!deadline || now < *deadline) {
        return std::nullopt;
    }
    if (didFire_) {
        killTime_.reset();
        return SIGKILL;
    }
    didFire_ = true;
    killTime_ = now + killDelay;
    return SIGTERM;
}

} // namespace ramdisk
