#pragma once

#include "RamDiskCore/Ports/Port.h"
#include "RamDiskCore/Preferences/PreferencesSnapshot.h"

namespace ramdisk {

/// Keeps the user's settings.
class PreferencesStoring : public Port {
public:
    /// The settings as they are stored now. A setting that is not stored, or whose stored value is invalid,
    /// has its default. Never fails.
    [[nodiscard]] virtual PreferencesSnapshot load() const = 0;

    /// Stores every setting.
    /// @throws std::exception with nothing stored.
    virtual void store(const PreferencesSnapshot& snapshot) = 0;

    /// Stores the settings in which `after` differs from `before`, and leaves the others as somebody else may
    /// have set them meanwhile.
    /// @throws std::exception with nothing stored.
    virtual void storeChanges(const PreferencesSnapshot& before, const PreferencesSnapshot& after) = 0;
};

} // namespace ramdisk
