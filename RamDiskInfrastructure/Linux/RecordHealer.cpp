#include "RamDiskInfrastructure/Linux/RecordHealer.h"

#include <algorithm>

namespace ramdisk {

bool RecordHealer::heal(const DiskRecord& record) const noexcept {
    try {
        const auto& store = context_.storeOf(record);
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
