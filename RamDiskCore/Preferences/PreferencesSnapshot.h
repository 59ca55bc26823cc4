#pragma once

#include "RamDiskCore/Preferences/HotKey.h"
#include "RamDiskCore/Preferences/InterfaceChoices.h"
#include "RamDiskCore/Values/AutomationModes.h"
#include "RamDiskCore/Values/ByteCount.h"
#include "RamDiskCore/Values/FileSystem.h"
#include "RamDiskCore/Values/VolumeAccess.h"

namespace ramdisk {

/// All settings of the user, as they were at one moment. A default-constructed value holds the defaults.
struct PreferencesSnapshot {
    ByteCount defaultSize = ByteCount::of(1, ByteCount::Unit::gibibyte);
    FileSystem defaultFileSystem = FileSystem::hfsPlus;
    bool revealAfterCreation = true;
    bool isIndexingEnabledByDefault = false;
    bool isEncryptionEnabledByDefault = false;
    bool showsWindowAtLaunch = true;
    DiskLayout diskLayout = DiskLayout::cards;
    AppAppearance appearance = AppAppearance::automatic;
    AccentChoice accent = AccentChoice::cobalt;
    AutosaveInterval autosaveInterval = AutosaveInterval::tenMinutes;
    bool savesBeforeSleep = true;
    bool adaptsSavingToBattery = true;
    AutoEjectInterval autoEject = AutoEjectInterval::off;
    bool notifiesWhenFull = true;
    MenuBarDisplay menuBarDisplay = MenuBarDisplay::icon;
    bool showsMenuBarIcon = true;
    DiskGrowthMode diskGrowth = DiskGrowthMode::ask;
    bool respondsToLowMemory = true;
    bool showsInFinderSidebar = true;
    bool excludesSavedFilesFromBackup = true;
    bool checksForUpdates = true;
    bool downloadsUpdates = true;
    TerminalApp terminal = TerminalApp::terminal;
    VolumeAccess newDiskAccess = VolumeAccess::everyone;
    HotKeys hotKeys{};

    friend bool operator==(const PreferencesSnapshot&, const PreferencesSnapshot&) = default;
};

} // namespace ramdisk
