#pragma once

#include "RamDiskCore/Ports/PreferencesStoring.h"
#include "RamDiskCore/Ports/UserDefaultsStoring.h"

#include <memory>

namespace ramdisk {

/// Keeps the settings in the user defaults, each under its own key. A setting with its default is not stored,
/// so the user defaults hold only what the user chose.
class PreferencesDefaults final : public PreferencesStoring {
public:
    explicit PreferencesDefaults(std::shared_ptr<UserDefaultsStoring> defaults);

    [[nodiscard]] PreferencesSnapshot load() const override;
    void store(const PreferencesSnapshot& snapshot) override;
    void storeChanges(const PreferencesSnapshot& before, const PreferencesSnapshot& after) override;

private:
    std::shared_ptr<UserDefaultsStoring> defaults_;
};

} // namespace ramdisk
