#include "RamDiskInfrastructure/Stores/PreferencesDefaults.h"

#include "RamDiskCore/Preferences/PreferenceField.h"

#include <utility>

namespace ramdisk {

namespace {

void add(DefaultsChanges& changes, const PreferenceField& field, const PreferencesSnapshot& snapshot) {
    changes[std::string(field.defaultsKey)] =
        field.differsFromDefault(snapshot) ? std::optional(field.stored(snapshot)) : std::nullopt;
}

} // namespace

PreferencesDefaults::PreferencesDefaults(std::shared_ptr<UserDefaultsStoring> defaults)
    : defaults_(std::move(defaults)) {}

PreferencesSnapshot PreferencesDefaults::load() const {
    PreferencesSnapshot snapshot;
    const auto values = defaults_->values();
    for (const auto& field : preferenceFields()) {
        if (const auto value = values.find(std::string(field.defaultsKey)); value != values.end()) {
            // An invalid value leaves the default.
            static_cast<void>(field.read(value->second, snapshot));
        }
    }
    return snapshot;
}

void PreferencesDefaults::store(const PreferencesSnapshot& snapshot) {
    DefaultsChanges changes;
    for (const auto& field : preferenceFields()) {
        add(changes, field, snapshot);
    }
    defaults_->apply(changes);
}

void PreferencesDefaults::storeChanges(const PreferencesSnapshot& before, const PreferencesSnapshot& after) {
    DefaultsChanges changes;
    for (const auto& field : preferenceFields()) {
        if (!field.isEqual(before, after)) {
            add(changes, field, after);
        }
    }
    if (!changes.empty()) {
        defaults_->apply(changes);
    }
}

} // namespace ramdisk
