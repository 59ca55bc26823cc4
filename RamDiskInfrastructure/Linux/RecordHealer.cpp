#include "RamDiskInfrastructure/Linux/RecordHealer.h"

#include <algorithm>

namespace ramdisk {

bool RecordHealer::heal(const DiskRecord& record) const noexcept {
    try {
        const auto& store = context_.storeOf(record);
        if (!store.isOwn()) {
            // Where somebody else can swap folders for links, nothing is changed unasked.
            return true;
        }
        if (auto hold = store.tryHold(record)) {
            healHeld(std::move(*hold));
        }
        const auto records = store.readAll();
        return std::any_of(records.begin(), records.end(),
                           [&record](const DiskRecord& other) { return other.uuid == record.uuid; });
    } catch (const std::exception&) {
        return true;
    }
}

bool RecordHealer::stands(const DiskRecord& record, const MountTable& mounts) const noexcept {
    try {
        if (record.state == RecordState::settled && context_.volumes.of(record.kind).isLive(record, mounts)) {
            return true;
        }
    } catch (const std::exception&) {
        return true;
    }
    return heal(record);
}

void RecordHealer::healHeld(RecordHold hold) const {
    const auto& store = context_.storeOf(hold.record);
    const auto& volume = context_.volumes.of(hold.record.kind);
    const auto mounts = MountTable::read(context_.host.proc);
    if (hold.record.state == RecordState::detaching) {
        if (volume.isWholeAndVisible(hold.record, mounts)) {
            hold.record.state = RecordState::settled;
            store.update(hold);
            return;
        }
        removeRemains(hold.record);
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
        return;
    }
    // Its maker died just before the end. Nobody was told of the disk, but somebody may have found it.
    if (volume.isPristine(hold.record)) {
        const auto detached = volume.detach(hold, store, Force::no).value;
        if (std::holds_alternative<Detached::Gone>(detached)) {
            discard(std::move(hold));
            return;
        }
        if (std::holds_alternative<Detached::Held>(detached)) {
            return;
        }
    }
    hold.record.state = RecordState::settled;
    store.update(hold);
}

void RecordHealer::discard(RecordHold hold) const {
    removeRemains(hold.record);
    const auto& store = context_.storeOf(hold.record);
    store.remove(std::move(hold));
}

void RecordHealer::removeRemains(const DiskRecord& record) const {
    // So that nobody makes the folder anew between the look and the removal.
    const auto lock = context_.storeOf(record).lockNames();
    if (!isMountPointOfAnother(record)) {
        context_.volumes.of(record.kind).removeRemains(record);
    }
}

bool RecordHealer::isMountPointOfAnother(const DiskRecord& record) const {
    const auto records = context_.storeOf(record).readAll();
    return std::any_of(records.begin(), records.end(), [&record](const DiskRecord& other) {
        return other.uuid != record.uuid && other.mountPoint == record.mountPoint;
    });
}

} // namespace ramdisk
