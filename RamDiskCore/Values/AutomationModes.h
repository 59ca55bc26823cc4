#pragma once

#include "RamDiskCore/Values/EnumerationTable.h"

#include <chrono>
#include <string_view>

namespace ramdisk {

/// How often kept files are saved while a disk is in use. `off` saves only on eject and quit.
enum class AutosaveInterval { off, fiveMinutes, tenMinutes, thirtyMinutes };

/// After how long without reads and writes a disk is ejected.
enum class AutoEjectInterval { off, thirtyMinutes, oneHour, fourHours };

/// What happens when a disk is almost full.
enum class DiskGrowthMode { off, ask, automatic };

template <>
inline constexpr auto enumerators<DiskGrowthMode> = enumerationTable<Named<DiskGrowthMode>>(
    {{DiskGrowthMode::off, "off"}, {DiskGrowthMode::ask, "ask"}, {DiskGrowthMode::automatic, "automatic"}});

template <typename Enumeration>
struct NamedInterval {
    Enumeration value;
    std::string_view name;
    /// Zero for `off`.
    std::chrono::minutes length;
};

template <>
inline constexpr auto enumerators<AutosaveInterval> = enumerationTable<NamedInterval<AutosaveInterval>>({
    {AutosaveInterval::off, "off", std::chrono::minutes(0)},
    {AutosaveInterval::fiveMinutes, "fiveMinutes", std::chrono::minutes(5)},
    {AutosaveInterval::tenMinutes, "tenMinutes", std::chrono::minutes(10)},
    {AutosaveInterval::thirtyMinutes, "thirtyMinutes", std::chrono::minutes(30)},
});

template <>
inline constexpr auto enumerators<AutoEjectInterval> = enumerationTable<NamedInterval<AutoEjectInterval>>({
    {AutoEjectInterval::off, "off", std::chrono::minutes(0)},
    {AutoEjectInterval::thirtyMinutes, "thirtyMinutes", std::chrono::minutes(30)},
    {AutoEjectInterval::oneHour, "oneHour", std::chrono::minutes(60)},
    {AutoEjectInterval::fourHours, "fourHours", std::chrono::minutes(240)},
});

/// The length of an interval; zero for `off`.
template <typename Interval>
requires(std::is_same_v<Interval, AutosaveInterval> || std::is_same_v<Interval, AutoEjectInterval>)
    [[nodiscard]] constexpr std::chrono::minutes minutesOf(Interval interval) {
    return rowOf(enumerators<Interval>, interval).length;
}

} // namespace ramdisk
