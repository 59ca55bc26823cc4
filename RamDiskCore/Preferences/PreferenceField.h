#pragma once

#include "RamDiskCore/Preferences/DefaultsValue.h"
#include "RamDiskCore/Preferences/PreferencesSnapshot.h"

#include <span>
#include <string>
#include <string_view>

namespace ramdisk {

/// One setting: its names, and how it is converted between a snapshot, the user defaults and a command line.
struct PreferenceField {
    /// The name of the snapshot's field, which users type and exported settings hold.
    std::string_view name;
    /// The key under which it is stored.
    std::string_view defaultsKey;
    /// Whether anything uses this setting yet.
    bool hasEffect = false;
    /// What a user can set it to, in words.
    std::string allowedValues;

    /// Reads a stored value into the snapshot. Returns false, and leaves the snapshot as it was, when the
    /// value is of another type or unknown.
    bool (*read)(const DefaultsValue& stored, PreferencesSnapshot& snapshot);
    DefaultsValue (*stored)(const PreferencesSnapshot& snapshot);

    /// The same for a value that a user typed. Null when a value of this setting cannot be typed as one word.
    bool (*readText)(std::string_view text, PreferencesSnapshot& snapshot);
    std::string (*text)(const PreferencesSnapshot& snapshot);

    /// Whether the snapshots agree on this setting.
    [[nodiscard]] bool isEqual(const PreferencesSnapshot& left, const PreferencesSnapshot& right) const;
    [[nodiscard]] bool differsFromDefault(const PreferencesSnapshot& snapshot) const;
};

/// All settings, in their order.
[[nodiscard]] std::span<const PreferenceField> preferenceFields();

/// Null when there is no such setting.
[[nodiscard]] const PreferenceField* preferenceFieldNamed(std::string_view name);

} // namespace ramdisk
