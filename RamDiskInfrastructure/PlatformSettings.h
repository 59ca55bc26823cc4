#pragma once

#include <span>
#include <string_view>

namespace ramdisk {

/// A setting that only this platform has, kept in the user defaults under its name and no part of what is
/// exported to other machines. Is true or false.
struct PlatformSetting {
    std::string_view name;
    bool defaultValue = false;
};

[[nodiscard]] std::span<const PlatformSetting> platformSettings();

/// Null when this platform has no such setting.
[[nodiscard]] const PlatformSetting* platformSettingNamed(std::string_view name);

/// Whether anything on this platform heeds the setting, one of all platforms' or its own.
[[nodiscard]] bool settingHasEffect(std::string_view name);

} // namespace ramdisk
