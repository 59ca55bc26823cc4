#pragma once

/// Where macOS keeps the tools that the adapters drive.
namespace ramdisk::toolPaths {

inline constexpr const char* hdiutil = "/usr/bin/hdiutil";
inline constexpr const char* diskutil = "/usr/sbin/diskutil";
inline constexpr const char* mdutil = "/usr/bin/mdutil";
inline constexpr const char* lsof = "/usr/sbin/lsof";
inline constexpr const char* ditto = "/usr/bin/ditto";
inline constexpr const char* launchctl = "/bin/launchctl";

} // namespace ramdisk::toolPaths
