#pragma once

#include "RamDiskCore/Automation/PowerState.h"
#include "RamDiskCore/Preferences/PreferencesSnapshot.h"

namespace ramdisk {

/// By how much the user's autosave interval is stretched to spare the battery: 3 in Low Power Mode, else 2 on
/// battery, else 1; always 1 when the user wants no such thing. The one save of a nearly empty battery is not
/// part of this, and comes in any case.
[[nodiscard]] int savingFactor(const PowerState& power, const PreferencesSnapshot& preferences);

} // namespace ramdisk
