#pragma once

#include "RamDiskCore/Ports/PreferencesStoring.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>

namespace ramdisk {

/// The settings as the interface holds them. Belongs to the main thread.
///
/// Every change is stored at once, and only what changed. Settings that another process changed meanwhile
/// stay as they are. `refresh` takes over what others changed. The owner calls it whenever he looks next,
/// such as on a tick of his timer.
class PreferencesStore {
public:
    using Observer = std::function<void(const PreferencesSnapshot& before, const PreferencesSnapshot& after)>;
    enum class Observation : std::uint64_t {};

    explicit PreferencesStore(std::shared_ptr<PreferencesStoring> storage);

    [[nodiscard]] const PreferencesSnapshot& snapshot() const noexcept { return snapshot_; }

    /// Changes settings, stores the change and tells the observers.
    /// @throws std::exception when it could not be stored; the snapshot stays as it was.
    void update(const std::function<void(PreferencesSnapshot&)>& change);

    /// Takes over what other processes stored. Tells the observers if anything is new.
    void refresh();

    /// Calls `observer` after every change, until it is removed. Observers may add and remove observers.
    Observation observe(Observer observer);
    void removeObserver(Observation observation);

    /// The actions whose hot keys another program has taken.
    std::set<HotKeyAction> unavailableHotKeys;

private:
    void take(PreferencesSnapshot after);

    std::shared_ptr<PreferencesStoring> storage_;
    PreferencesSnapshot snapshot_;
    std::map<Observation, Observer> observers_;
    std::uint64_t lastObservation_ = 0;
};

} // namespace ramdisk
