#include "RamDiskInfrastructure/Linux/Disks/LinuxRamDiskInventory.h"

#include "RamDiskInfrastructure/Linux/Disks/RecordHealer.h"
#include "RamDiskInfrastructure/Linux/Disks/RecordRecovery.h"

#include <algorithm>

namespace ramdisk {

namespace {

/// An ejected disk whose memory is still held: named, but nowhere to be found.
RamDisk describeDetaching(const DiskRecord& record) {
    RamDisk disk{record.device, record.name, record.size};
    disk.isCreatedByRamDisk = true;
    disk.memoryFootprint = record.heldBytes;
    disk.access = record.access;
    return disk;
}

} // namespace

std::vector<RamDisk> LinuxRamDiskInventory::list() {
    return list(Whose::everybodys);
}
std::vector<RamDisk> LinuxRamDiskInventory::listOwn() {
    return list(Whose::own);
}

std::vector<RamDisk> LinuxRamDiskInventory::list(Whose whose) const {
    try {
        // The records first: whatever they call complete was mounted before, so the later mounts show it.
        std::vector<DamagedRecord> damaged;
        auto records = context_->visibleRecords(&damaged);
        if (!damaged.empty()) {
            RecordRecovery(*context_).recover(damaged, records);
            records = context_->visibleRecords();
        }
        if (records.empty()) {
            return {};
        }
        const auto mounts = MountTable::read(context_->host.proc);
        const RecordHealer healer(*context_);
        std::vector<RamDisk> disks;
        disks.reserve(records.size());
        for (const auto& record : records) {
            if (whose == Whose::own && record.owner != context_->host.owner) {
                continue;
            }
            const auto& volume = context_->volumes.of(record.kind);
            const bool isInOrder = record.state == RecordState::settled && record.formerMountPoint.empty();
            if (isInOrder && volume.visibleAt(record, mounts) == record.mountPoint) {
                disks.push_back(volume.describe(record, mounts));
                continue;
            }
            const bool isLive = volume.isLive(record, mounts);
            const auto healed = healer.heal(record);
            if (healed && healed->state == RecordState::detaching) {
                disks.push_back(describeDetaching(*healed));
            } else if (healed && isLive
                       && (healed->state == RecordState::settled || volume.visibleAt(*healed, mounts))) {
                disks.push_back(volume.describe(*healed, mounts));
            }
        }
        std::sort(disks.begin(), disks.end(),
                  [](const RamDisk& left, const RamDisk& right) { return left.device < right.device; });
        return disks;
    } catch (const RamDiskError&) {
        throw;
    } catch (const std::exception& error) {
        throw RamDiskError(RamDiskError::InventoryUnavailable{error.what()});
    }
}

} // namespace ramdisk
