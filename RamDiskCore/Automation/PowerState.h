#pragma once

#include <optional>

namespace ramdisk {

/// Where the machine's power comes from, as it was at one moment.
struct PowerState {
    bool isOnBattery = false;
    /// From 0 to 1; absent without an internal battery, or when it cannot be read.
    std::optional<double> batteryLevel = std::nullopt;
    bool isLowPowerMode = false;

    friend bool operator==(const PowerState&, const PowerState&) = default;
};

} // namespace ramdisk
