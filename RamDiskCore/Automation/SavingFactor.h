#pragma once

#include "RamDiskCore/Automation/PowerState.h"
#include "RamDiskCore/Preferences/PreferencesSnapshot.h"

namespace ramdisk {

/// The factor by which the autosave interval is multiplied to spare the battery: 3 in Low Power Mode, else 2
/// on battery, else 1. Always 1 when the user does not want this. The one save at a nearly empty battery is
/// not affected and happens in any case.
[[nodiscard]] int savingFactor(const PowerState& power, const PreferencesSnapshot& preferences);

} // namespace ramdisk
