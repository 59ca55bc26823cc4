#pragma once

#include <array>
#include <chrono>
#include <optional>

namespace ramdisk {

/// How often kept files are saved while a disk is in use. `off` saves only on eject and quit.
enum class AutosaveInterval { off, fiveMinutes, tenMinutes, thirtyMinutes };

/// After how long without reads and writes a disk is ejected.
enum class AutoEjectInterval { off, thirtyMinutes, oneHour, fourHours };

/// What happens when a disk is almost full.
enum class DiskGrowthMode { off, ask, automatic };

/// The length of an interval; zero for `off`.
[[nodiscard]] constexpr std::chrono::minutes minutesOf(AutosaveInterval interval) {
    constexpr std::array minutes{0, 5, 10, 30};
    return std::chrono::minutes(minutes.at(static_cast<std::size_t>(interval)));
}
[[nodiscard]] constexpr std::chrono::minutes minutesOf(AutoEjectInterval interval) {
    constexpr std::array minutes{0, 30, 60, 240};
    return std::chrono::minutes(minutes.at(static_cast<std::size_t>(interval)));
}

} // namespace ramdisk
