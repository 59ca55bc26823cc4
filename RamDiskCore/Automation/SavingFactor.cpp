#include "RamDiskCore/Automation/SavingFactor.h"

namespace ramdisk {

int savingFactor(const PowerState& power, const PreferencesSnapshot& preferences) {
    if (!preferences.adaptsSavingToBattery) {
        return 1;
    }
    if (power.isLowPowerMode) {
        return 3;
    }
    return power.isOnBattery ? 2 : 1;
}

} // namespace ramdisk
