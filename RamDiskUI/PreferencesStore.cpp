#include "RamDiskUI/PreferencesStore.h"

#include <utility>

namespace ramdisk {

PreferencesStore::PreferencesStore(std::shared_ptr<PreferencesStoring> storage)
    : storage_(std::move(storage)),
      snapshot_(storage_->load()) {}

void PreferencesStore::update(const std::function<void(PreferencesSnapshot&)>& change) {
    // What is on the screen may be older than what is stored; the change is made to the latter.
    const auto stored = storage_->load();
    auto changed = stored;
    change(changed);
    storage_->storeChanges(stored, changed);
    take(std::move(changed));
}

void PreferencesStore::refresh() {
    take(storage_->load());
}

PreferencesStore::Observation PreferencesStore::observe(Observer observer) {
    const Observation observation{++lastObservation_};
    observers_.emplace(observation, std::move(observer));
    return observation;
}

void PreferencesStore::removeObserver(Observation observation) {
    observers_.erase(observation);
}

void PreferencesStore::take(PreferencesSnapshot after) {
    if (after == snapshot_) {
        return;
    }
    const auto before = std::exchange(snapshot_, after);
    const auto told = observers_;
    for (const auto& [observation, observer] : told) {
        if (observers_.contains(observation)) {
            observer(before, after);
        }
    }
}

} // namespace ramdisk
