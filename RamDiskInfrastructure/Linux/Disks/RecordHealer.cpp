#include "RamDiskInfrastructure/Linux/Disks/RecordHealer.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskInfrastructure/Linux/Records/DiskPlaces.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include <sys/mount.h>

namespace ramdisk {

namespace {

constexpr std::string_view records = "records";

void tell(const DiskRecord& record, std::string_view what) {
    trace(records, [&] { return fmt::format("{} “{}”: {}", record.device.bsdName(), record.name, what); });
}

} // namespace

std::optional<DiskRecord> RecordHealer::heal(const DiskRecord& record) const noexcept {
    try {
        const auto& store = context_.storeOf(record);
        if (!store.isOwn()) {
            // Where somebody else can swap folders for links, nothing is changed unasked.
            tell(record, "left alone: its records belong to another user");
            return record;
        }
        if (auto hold = store.tryHold(record)) {
            healHeld(std::move(*hold));
        } else {
            tell(record, record.state == RecordState::making
                             ? "left alone: it is being made"
                             : "left alone: it is being worked on, or it is gone by now");
        }
        auto records = store.readAll();
        const auto found = std::find_if(records.begin(), records.end(), [&record](const DiskRecord& other) {
            return other.uuid == record.uuid;
        });
        return found == records.end() ? std::nullopt : std::optional(std::move(*found));
    } catch (const std::exception&) {
        traceCaught(records, "not healed, to be tried by the next listing");
        return record;
    }
}

bool RecordHealer::stands(const DiskRecord& record, const MountTable& mounts) const noexcept {
    try {
        if (record.state == RecordState::settled && context_.volumes.of(record.kind).isLive(record, mounts)) {
            return true;
        }
    } catch (const std::exception&) {
        traceCaught(records, "taken as standing, for want of an answer");
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
            tell(hold.record,
                 "healed: its eject was cut short and it is still mounted; it is complete again");
            hold.record.state = RecordState::settled;
            store.update(hold);
            return;
        }
        removeRemains(hold.record);
        if (!volume.isLive(hold.record, mounts) && !volume.heldMemory(hold.record, mounts)) {
            tell(hold.record,
                 "healed: nothing holds the memory of the ejected disk any more; record removed");
            discard(std::move(hold));
        } else {
            tell(hold.record, "left alone: it is ejected, but its memory is still held");
        }
        return;
    }
    if (!volume.isLive(hold.record, mounts)) {
        const auto held = volume.heldMemory(hold.record, mounts);
        if (held && hold.record.state == RecordState::settled) {
            noteHeld(std::move(hold), *held);
            return;
        }
        tell(hold.record, hold.record.state == RecordState::making
                              ? "healed: its maker is gone (process ended) and has made no volume"
                              : "healed: its volume is gone");
        discard(std::move(hold));
        return;
    }
    if (hold.record.state != RecordState::making) {
        healSettled(std::move(hold), mounts);
        return;
    }
    if (!volume.visibleAt(hold.record, mounts)) {
        // Its maker died half way, and a tool that it had started may still be at work.
        tell(hold.record, "healed: its maker is gone (process ended) before the volume could be seen");
        discardUnseen(std::move(hold), mounts);
        return;
    }
    // Its maker died just before the end. Nobody was told of the disk, but somebody may have found it.
    if (volume.isPristine(hold.record)) {
        const auto result = volume.detach(hold, store, Force::no);
        const auto& detached = result.value;
        tellMovedAside(hold.record, result.movedAside);
        if (std::holds_alternative<Detached::Gone>(detached)) {
            tell(hold.record,
                 "healed: its maker is gone (process ended) and nobody has used the volume; it is unmounted");
            discard(std::move(hold));
            return;
        }
        if (std::holds_alternative<Detached::Held>(detached)) {
            tell(hold.record, "healed in part: its maker is gone, and what is unmounted is still in use");
            return;
        }
    }
    tell(hold.record, "healed: its maker is gone (process ended), but the volume is in use or holds files; "
                      "it is kept as complete");
    hold.record.state = RecordState::settled;
    store.update(hold);
}

void RecordHealer::healSettled(RecordHold hold, const MountTable& mounts) const {
    const auto& volume = context_.volumes.of(hold.record.kind);
    const auto visible = volume.visibleAt(hold.record, mounts);
    if (visible && *visible != hold.record.mountPoint) {
        // The mount was moved, or a renaming was cut short: the folder that it is not on any more is empty.
        const auto other = std::exchange(hold.record.mountPoint, *visible);
        trace(records, "{}: healed: it is mounted at {} and no more at {}", hold.record.device.bsdName(),
              visible->native(), other.native());
        hold.record.formerMountPoint.clear();
        context_.storeOf(hold.record).update(hold);
        tellMovedAside(hold.record, MountFolders::remove(other));
    } else if (visible && !hold.record.formerMountPoint.empty()) {
        tell(hold.record, "healed: its renaming was cut short and is finished");
        finishRenaming(std::move(hold), mounts);
    } else if (!visible && mounts.topmostAt(hold.record.mountPoint) == nullptr) {
        // Unmounted by other means: if it was in use, only its open files keep it.
        const auto held = volume.heldMemory(hold.record, mounts);
        if (!held) {
            tell(hold.record, "healed: it was unmounted by other means; record removed");
            discard(std::move(hold));
            return;
        }
        noteHeld(std::move(hold), *held);
    }
}

void RecordHealer::noteHeld(RecordHold hold, const ReleaseOutcome& held) const {
    tell(hold.record, "healed: it was unmounted by other means while in use; its memory is still held");
    hold.record.heldBytes = held.stillHeld.value_or(hold.record.heldBytes);
    hold.record.state = RecordState::detaching;
    context_.storeOf(hold.record).update(hold);
}

void RecordHealer::finishRenaming(RecordHold hold, const MountTable& mounts) const {
    const auto former = std::exchange(hold.record.formerMountPoint, {});
    auto atFormer = hold.record;
    atFormer.mountPoint = former;
    if (context_.volumes.of(hold.record.kind).visibleAt(atFormer, mounts) == former
        && umount2(former.c_str(), UMOUNT_NOFOLLOW) != 0) {
        // Killed while the volume was in both places, and somebody stands in the former one.
        if (umount2(hold.record.mountPoint.c_str(), UMOUNT_NOFOLLOW) != 0) {
            traceRefused(records, "unmounting either place of a renamed disk", "it stays in both");
            return;
        }
        tellMovedAside(hold.record, MountFolders::remove(std::exchange(hold.record.mountPoint, former)));
    } else {
        tellMovedAside(hold.record, MountFolders::remove(former));
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
        tellMovedAside(record, context_.volumes.of(record.kind).removeRemains(record));
    } else {
        tell(record, "its folder is left alone: another disk stands there");
    }
}

void RecordHealer::tellMovedAside(const DiskRecord& record,
                                  const std::optional<std::filesystem::path>& folder) const {
    if (folder) {
        context_.notice(
            fmt::format("A program wrote to “{}” after it was ejected. Its files are kept in “{}”.",
                        record.name, folder->string()));
    }
}

} // namespace ramdisk
