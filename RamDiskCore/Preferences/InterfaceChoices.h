#pragma once

#include "RamDiskCore/Values/EnumerationTable.h"

namespace ramdisk {

/// How the main window shows the disks.
enum class DiskLayout { cards, list };
template <>
inline constexpr auto enumerators<DiskLayout> =
    enumerationTable<Named<DiskLayout>>({{DiskLayout::cards, "cards"}, {DiskLayout::list, "list"}});

enum class AppAppearance { automatic, light, dark };
template <>
inline constexpr auto enumerators<AppAppearance> =
    enumerationTable<Named<AppAppearance>>({{AppAppearance::automatic, "automatic"},
                                            {AppAppearance::light, "light"},
                                            {AppAppearance::dark, "dark"}});

enum class AccentChoice { cobalt, teal, orange, graphite };
template <>
inline constexpr auto
    enumerators<AccentChoice> = enumerationTable<Named<AccentChoice>>({{AccentChoice::cobalt, "cobalt"},
                                                                       {AccentChoice::teal, "teal"},
                                                                       {AccentChoice::orange, "orange"},
                                                                       {AccentChoice::graphite, "graphite"}});

/// What the menu-bar item shows: an icon, how full the disks are, or their activity.
enum class MenuBarDisplay { icon, fill, activity };
template <>
inline constexpr auto enumerators<MenuBarDisplay> = enumerationTable<Named<MenuBarDisplay>>(
    {{MenuBarDisplay::icon, "icon"}, {MenuBarDisplay::fill, "fill"}, {MenuBarDisplay::activity, "activity"}});

/// The program that is opened at a disk.
enum class TerminalApp { terminal, iTerm, ghostty };
template <>
inline constexpr auto enumerators<TerminalApp> = enumerationTable<Named<TerminalApp>>(
    {{TerminalApp::terminal, "terminal"}, {TerminalApp::iTerm, "iTerm"}, {TerminalApp::ghostty, "ghostty"}});

} // namespace ramdisk
