#include "RamDiskInfrastructure/Linux/Disks/RecordHealer.h"

#include "RamDiskInfrastructure/Linux/Records/DiskPlaces.h"

#include <algorithm>
#include <utility>

#include <sys/mount.h>

namespace ramdisk {

std::optional<DiskRecord> RecordHealer::heal(const DiskRecord& record) const noexcept {
    try {
        const auto& store = context_.storeOf(record);
        if (!store.isOwn()) {
            // Where somebody else can swap folders for links, nothing is changed unasked.
            return record;
        }
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

bool RecordHealer::stands(const DiskRecord& record, const MountTable& mounts) const noexcept {
    try {
        if (record.state == RecordState::settled && context_.volumes.of(record.kind).isLive(record, mounts)) {
            return true;
        }
    } catch (const std::exception&) {
        return true;
    }
    return heal(record).has_value();
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
        healSettled(std::move(hold), mounts);
        return;
    }
    if (!volume.visibleAt(hold.record, mounts)) {
        // Its maker died half way, and a tool that it had started may still be at work.
        discardUnseen(std::move(hold), mounts);
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

void RecordHealer::healSettled(RecordHold hold, const MountTable& mounts) const {
    const auto& volume = context_.volumes.of(hold.record.kind);
    const auto visible = volume.visibleAt(hold.record, mounts);
    if (visible && *visible != hold.record.mountPoint) {
        // The mount was moved, or a renaming was cut short: the folder that it is not on any more is empty.
        const auto other = std::exchange(hold.record.mountPoint, *visible);
        hold.record.formerMountPoint.clear();
        context_.storeOf(hold.record).update(hold);
        MountFolders::remove(other);
    } else if (visible && !hold.record.formerMountPoint.empty()) {
        finishRenaming(std::move(hold), mounts);
    } else if (!visible && mounts.topmostAt(hold.record.mountPoint) == nullptr) {
        // Unmounted by other means: if it was in use, only its open files keep it.
        const auto held = volume.heldMemory(hold.record, mounts);
        if (!held) {
            discard(std::move(hold));
            return;
        }
        hold.record.heldBytes = held->stillHeld.value_or(hold.record.heldBytes);
        hold.record.state = RecordState::detaching;
        context_.storeOf(hold.record).update(hold);
    }
}

void RecordHealer::finishRenaming(RecordHold hold, const MountTable& mounts) const {
    const auto former = std::exchange(hold.record.formerMountPoint, {});
    auto atFormer = hold.record;
    atFormer.mountPoint = former;
    if (context_.volumes.of(hold.record.kind).visibleAt(atFormer, mounts) == former
        && umount2(former.c_str(), UMOUNT_NOFOLLOW) != 0) {
        // Killed while the volume was in both places, and somebody stands in the former one.
        if (umount2(hold.record.mountPoint.c_str(), UMOUNT_NOFOLLOW) != 0) {
            return;
        }
        MountFolders::remove(std::exchange(hold.record.mountPoint, former));
    } else {
        MountFolders::remove(former);
    }
    context_.storeOf(hold.record).update(hold);
}

void RecordHealer::discardUnseen(RecordHold hold, const MountTable& mounts) const {
    removeRemains(hold.record);
    if (!context_.volumes.of(hold.record.kind).heldMemory(hold.record, mounts)) {
        discard(std::move(hold));
    }
}

void RecordHealer::discard(RecordHold hold) const {
    removeRemains(hold.record);
    const auto& store = context_.storeOf(hold.record);
    store.remove(std::move(hold));
}

void RecordHealer::removeRemains(const DiskRecord& record) const {
    // So that nobody makes the folder anew between the look and the removal.
    const auto& store = context_.storeOf(record);
    const auto lock = store.lockNames();
    if (!isMountPointOfAnother(store, record, record.mountPoint)) {
        context_.volumes.of(record.kind).removeRemains(record);
    }
}

} // namespace ramdisk
