#pragma once

#include <chrono>
#include <optional>

namespace ramdisk {

/// The time limit of one running child: SIGTERM when it passes, SIGKILL two seconds later. This class has no
/// timer and sends nothing. The caller that waits for the child asks which signal is due.
class Watchdog {
public:
    using Clock = std::chrono::steady_clock;
    using TimePoint = Clock::time_point;

    static constexpr std::chrono::seconds killDelay{2};

    /// A limit of `seconds` from `start`. Absent, or beyond the clock's range, means no limit. A limit that
    /// is not above zero has passed at once.
    Watchdog(std::optional<double> seconds, TimePoint start);

    /// Set once the child has been waited for: nothing is due any more.
    [[nodiscard]] bool isStopped() const noexcept { return isStopped_; }
    /// Set when the limit passed while the child still ran.
    [[nodiscard]] bool didFire() const noexcept { return didFire_; }
    [[nodiscard]] std::optional<TimePoint> limit() const noexcept { return limit_; }

    /// When the next signal will be due; absent when none will be.
    [[nodiscard]] std::optional<TimePoint> nextDeadline() const noexcept;

    /// The signal that the child should get at `now`; each signal at most once. Ask only while the child is
    /// known to run.
    [[nodiscard]] std::optional<int> takeDueSignal(TimePoint now) noexcept;

    void stop() noexcept { isStopped_ = true; }

private:
    std::optional<TimePoint> limit_;
    /// When SIGKILL is due. Set when SIGTERM was.
    std::optional<TimePoint> killTime_;
    bool isStopped_ = false;
    bool didFire_ = false;
};

} // namespace ramdisk
