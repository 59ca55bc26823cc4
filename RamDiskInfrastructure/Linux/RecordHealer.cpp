#include "RamDiskInfrastructure/Linux/RecordHealer.h"

#include <algorithm>
#include <utility>

namespace ramdisk {

std::optional<DiskRecord> RecordHealer::heal(const DiskRecord& record) const noexcept {
    try {
        const auto& store = context_.storeOf(record);
        if (auto hold = store.tryHold(record)) {
            healHeld(std::move(*hold));
        }
        auto records = store.readAll();
        const auto found = std::find_if(records.begin(), records.end(), [&record](const DiskRecord& other) {
            return other.uuid == record.uuid;
        });
        return found == records.end() ? std::nullopt : std::optional(std::move(*found));
    } catch (const std::exception&) {
        return record;
    }
}

void RecordHealer::healHeld(RecordHold hold) const {
    const auto& store = context_.storeOf(hold.record);
    const auto& volume = context_.volumes.of(hold.record.kind);
    const auto mounts = MountTable::read(context_.host.proc);
    if (hold.record.state == RecordState::detaching) {
        if (volume.visibleAt(hold.record, mounts)) {
            hold.record.state = RecordState::settled;
            store.update(hold);
            return;
        }
        volume.removeRemains(hold.record);
        if (!volume.isLive(hold.record, mounts) && !volume.heldMemory(hold.record, mounts)) {
            discard(std::move(hold));
        }
        return;
    }
    if (!volume.isLive(hold.record, mounts)) {
        discard(std::move(hold));
        return;
    }
    if (hold.record.state != RecordState::making) {
        healSettled(std::move(hold), mounts);
        return;
    }
    // Its maker died just before the end. Nobody was told of the disk, but somebody may have found it.
    if (volume.isPristine(hold.record)
        && std::holds_alternative<Detached::Gone>(volume.detach(hold, store, Force::no).value)) {
        discard(std::move(hold));
        return;
    }
    hold.record.state = RecordState::settled;
    store.update(hold);
}

void RecordHealer::healSettled(RecordHold hold, const MountTable& mounts) const {
    const auto visible = context_.volumes.of(hold.record.kind).visibleAt(hold.record, mounts);
    if (visible && *visible != hold.record.mountPoint) {
        // The mount was moved, or a renaming was cut short: the folder that it is not on any more is empty.
        const auto other = std::exchange(hold.record.mountPoint, *visible);
        hold.record.formerMountPoint.clear();
        context_.storeOf(hold.record).update(hold);
        MountFolders::remove(other);
    } else if (visible && !hold.record.formerMountPoint.empty()) {
        MountFolders::remove(std::exchange(hold.record.formerMountPoint, {}));
        context_.storeOf(hold.record).update(hold);
    } else if (!visible && mounts.topmostAt(hold.record.mountPoint) == nullptr) {
        // Unmounted by other means while in use: only its open files keep it.
        hold.record.state = RecordState::detaching;
        context_.storeOf(hold.record).update(hold);
    }
}

void RecordHealer::discard(RecordHold hold) const {
    if (!isMountPointOfAnother(hold.record)) {
        context_.volumes.of(hold.record.kind).removeRemains(hold.record);
    }
    const auto& store = context_.storeOf(hold.record);
    store.remove(std::move(hold));
}

bool RecordHealer::isMountPointOfAnother(const DiskRecord& record) const {
    const auto records = context_.storeOf(record).readAll();
    return std::any_of(records.begin(), records.end(), [&record](const DiskRecord& other) {
        return other.uuid != record.uuid && other.mountPoint == record.mountPoint;
    });
}

} // namespace ramdisk
