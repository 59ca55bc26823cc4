#pragma once

namespace ramdisk {

/// How the main window shows the disks.
enum class DiskLayout { cards, list };

enum class AppAppearance { automatic, light, dark };

enum class AccentChoice { cobalt, teal, orange, graphite };

/// What the menu-bar item shows: an icon, how full the disks are, or their activity.
enum class MenuBarDisplay { icon, fill, activity };

/// The program that is opened at a disk.
enum class TerminalApp { terminal, iTerm, ghostty };

} // namespace ramdisk
