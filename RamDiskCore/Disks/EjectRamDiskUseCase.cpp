#include "RamDiskCore/Disks/EjectRamDiskUseCase.h"

#include <algorithm>

namespace ramdisk {

namespace {

/// Two listings speak of the same disk unless both know the attachment and they differ. Listed by another of
/// its devices, whose attachment is another one, a disk is known by its mark.
bool isSameAttachment(const RamDisk& left, const RamDisk& right) {
    if (left.device != right.device) {
        return left.has(right.device) && left.instance && left.instance == right.instance;
    }
    return !left.attachment || !right.attachment || left.attachment == right.attachment;
}

} // namespace

EjectRamDiskUseCase::EjectRamDiskUseCase(std::shared_ptr<RamDeviceAllocating> allocator,
                                         std::shared_ptr<RamDiskInventory> inventory)
    : allocator_(std::move(allocator)),
      inventory_(std::move(inventory)) {}

ReleaseOutcome EjectRamDiskUseCase::eject(const RamDisk& disk, Force force) {
    const auto listed = inventory_->list();
    const auto found = std::find_if(listed.begin(), listed.end(), [&disk](const RamDisk& candidate) {
        return isSameAttachment(candidate, disk);
    });
    if (found == listed.end()) {
        throw RamDiskError(RamDiskError::NotFound{RamDiskReference{RamDiskReference::Device{disk.device}}});
    }
    return allocator_->release(found->device, force, found->attachment);
}

BatchEjectResult EjectRamDiskUseCase::ejectAll(Force force) {
    BatchEjectResult result;
    for (const auto& disk : inventory_->listOwn()) {
        if (!disk.isCreatedByRamDisk) {
            continue;
        }
        try {
            result.outcomes.push_back(eject(disk, force));
            result.ejected.push_back(disk);
        } catch (const RamDiskError& error) {
            result.failures.push_back({disk, error});
        } catch (const std::exception& error) {
            result.failures.push_back(
                {disk, RamDiskError(RamDiskError::EjectFailed{disk.device, error.what()})});
        }
    }
    return result;
}

} // namespace ramdisk
