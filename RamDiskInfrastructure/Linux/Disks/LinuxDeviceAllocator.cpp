#include "RamDiskInfrastructure/Linux/Disks/LinuxDeviceAllocator.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/Linux/Disks/RecordHealer.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace ramdisk {

namespace {

constexpr const char* settling = "settle the record";

VolumeKind kindOn(HostRung rung) {
    switch (rung) {
    case HostRung::kernel:
        return VolumeKind::tmpfs;
    case HostRung::folder:
        return VolumeKind::folder;
    case HostRung::udisks:
        break;
    }
    throw RamDiskError(RamDiskError::AllocationFailed{"this version cannot ask the desktop’s disk service; "
                                                      "set TRAMDISK_HOST to kernel or folder, or unset it."});
}

[[noreturn]] void throwNotFound(const DeviceIdentifier& device) {
    throw RamDiskError(RamDiskError::NotFound{RamDiskReference{RamDiskReference::Device{device}}});
}

} // namespace

std::vector<unsigned> LinuxDeviceAllocator::numbersElsewhere() const {
    std::vector<unsigned> numbers;
    for (std::size_t index = 1; index < context_->stores.size(); ++index) {
        const auto more = context_->stores[index].usedNumbers();
        numbers.insert(numbers.end(), more.begin(), more.end());
    }
    return numbers;
}

MachineStep LinuxDeviceAllocator::claimStep(ByteCount size, std::optional<RecordHold>& claimed) const {
    const auto kind = kindOn(context_->host.firstRung());
    return {fmt::format("claim the lowest free device number in {}", context_->ownStore().folder().string()),
            [this, size, kind, &claimed] {
                auto draft = DiskRecord::draft();
                draft.owner = context_->host.owner;
                draft.kind = kind;
                draft.size = {sectorCount(size) * 512};
                claimed = context_->ownStore().claim(std::move(draft), numbersElsewhere(),
                                                     context_->host.ownerGroup);
            }};
}

DeviceIdentifier LinuxDeviceAllocator::allocate(ByteCount size) {
    try {
        std::optional<RecordHold> claimed;
        perform({claimStep(size, claimed)}, context_->observer);
        const auto device = claimed->record.device;
        pending_->add(std::move(*claimed));
        return device;
    } catch (const RamDiskError&) {
        throw;
    } catch (const std::exception& error) {
        throw RamDiskError(RamDiskError::AllocationFailed{error.what()});
    }
}

void LinuxDeviceAllocator::settle(const DeviceIdentifier& device) {
    auto* hold = pending_->find(device);
    if (hold == nullptr) {
        return;
    }
    try {
        hold->record.state = RecordState::settled;
        perform({{settling, [&] { context_->ownStore().update(*hold); }}}, context_->observer);
    } catch (const std::exception& error) {
        throw RamDiskError(RamDiskError::AllocationFailed{error.what()});
    }
    static_cast<void>(pending_->take(device));
}

ReleaseOutcome LinuxDeviceAllocator::release(const DeviceIdentifier& device, Force force,
                                             std::optional<std::uint64_t> attachment) {
    try {
        if (auto making = pending_->take(device)) {
            abandon(std::move(*making));
            return {};
        }
        const auto record = find(device, attachment);
        if (!record) {
            throwNotFound(device);
        }
        auto hold = context_->storeOf(*record).hold(*record);
        if (!hold) {
            throwNotFound(device);
        }
        return releaseHeld(std::move(*hold), force);
    } catch (const RamDiskError&) {
        throw;
    } catch (const std::exception& error) {
        throw RamDiskError(RamDiskError::EjectFailed{device, error.what()});
    }
}

void LinuxDeviceAllocator::abandon(RecordHold hold) const {
    const auto& store = context_->storeOf(hold.record);
    const auto& volume = context_->volumes.of(hold.record.kind);
    const auto device = hold.record.device;
    const auto mounts = MountTable::read(context_->host.proc);
    if (!volume.visibleAt(hold.record, mounts)) {
        RecordHealer(*context_).discardUnseen(std::move(hold), mounts);
        return;
    }
    if (volume.isLive(hold.record, mounts)) {
        const auto detached = volume.detach(hold, store, Force::yes);
        RecordHealer(*context_).tellMovedAside(hold.record, detached.movedAside);
        if (!std::holds_alternative<Detached::Gone>(detached.value)) {
            // The record stays and with it the trace of what stands; the next listing goes on from there.
            trace("records",
                  [&] { return device.bsdName() + " stays: what was made of it cannot be unmounted yet"; });
            return;
        }
    }
    RecordHealer(*context_).discard(std::move(hold));
}

ReleaseOutcome LinuxDeviceAllocator::releaseHeld(RecordHold hold, Force force) const {
    const auto& volume = context_->volumes.of(hold.record.kind);
    const auto device = hold.record.device;
    const RecordHealer healer(*context_);
    const auto mounts = MountTable::read(context_->host.proc);
    if (hold.record.state == RecordState::detaching && !volume.visibleAt(hold.record, mounts)) {
        healer.removeRemains(hold.record);
        if (const auto held = volume.heldMemory(hold.record, mounts)) {
            if (force == Force::yes) {
                return *held;
            }
            throw RamDiskError(RamDiskError::EjectFailed{
                device,
                fmt::format("it is ejected, but its memory is kept by {}.",
                            held->holders.empty() ? "open files"
                                                  : fmt::format("{}", fmt::join(held->holders, ", "))),
                EjectObstacle::busy});
        }
        if (volume.isLive(hold.record, mounts)) {
            throw RamDiskError(RamDiskError::EjectFailed{
                device, "it is ejected, but not all of its files could be deleted."});
        }
        healer.discard(std::move(hold));
        return {};
    }
    if (!volume.isLive(hold.record, mounts)) {
        healer.discard(std::move(hold));
        throwNotFound(device);
    }
    const auto detached = volume.detach(hold, context_->storeOf(hold.record), force);
    healer.tellMovedAside(hold.record, detached.movedAside);
    if (const auto* refused = std::get_if<Detached::Refused>(&detached.value)) {
        throw RamDiskError(RamDiskError::EjectFailed{device, refused->reason, refused->obstacle});
    }
    if (const auto* held = std::get_if<Detached::Held>(&detached.value)) {
        healer.removeRemains(hold.record);
        return held->outcome;
    }
    healer.discard(std::move(hold));
    return {};
}

std::optional<DiskRecord> LinuxDeviceAllocator::find(const DeviceIdentifier& device,
                                                     std::optional<std::uint64_t> attachment) const {
    const auto mounts = MountTable::read(context_->host.proc);
    for (auto& record : context_->visibleRecords()) {
        if (record.device != device) {
            continue;
        }
        if (!attachment || record.state == RecordState::detaching
            || context_->volumes.of(record.kind).describe(record, mounts).attachment == attachment) {
            return std::move(record);
        }
    }
    return std::nullopt;
}

std::vector<std::string> LinuxDeviceAllocator::plan(ByteCount size) const {
    std::optional<RecordHold> never;
    return descriptions({claimStep(size, never)});
}

std::vector<std::string> LinuxDeviceAllocator::planSettling() const {
    return {settling};
}

} // namespace ramdisk
