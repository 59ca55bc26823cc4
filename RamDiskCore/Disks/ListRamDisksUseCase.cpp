#include "RamDiskCore/Disks/ListRamDisksUseCase.h"

#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskCore/Values/Text.h"

#include <utility>

namespace ramdisk {

namespace {

struct Matches {
    const RamDisk& disk;
    const RamDiskInventory& inventory;

    bool operator()(const RamDiskReference::Device& reference) const { return disk.has(reference.device); }
    bool operator()(const RamDiskReference::MountPoint& reference) const {
        return disk.mountPoint
               && inventory.isSamePath(standardized(*disk.mountPoint), standardized(reference.path));
    }
    bool operator()(const RamDiskReference::Name& reference) const {
        return namesEqual(disk.name, reference.name);
    }
};

} // namespace

ListRamDisksUseCase::ListRamDisksUseCase(std::shared_ptr<RamDiskInventory> inventory)
    : inventory_(std::move(inventory)) {}

std::vector<RamDisk> ListRamDisksUseCase::list() const {
    return inventory_->list();
}

std::vector<RamDisk> ListRamDisksUseCase::listOwn() const {
    return inventory_->listOwn();
}

RamDisk ListRamDisksUseCase::resolve(const RamDiskReference& reference) const {
    std::vector<RamDisk> matches;
    for (auto& disk : list()) {
        if (std::visit(Matches{disk, *inventory_}, reference.value)) {
            matches.push_back(std::move(disk));
        }
    }
    if (matches.empty()) {
        throw RamDiskError(RamDiskError::NotFound{reference});
    }
    if (matches.size() > 1) {
        std::vector<DeviceIdentifier> devices;
        for (const auto& disk : matches) {
            devices.push_back(disk.device);
        }
        throw RamDiskError(RamDiskError::AmbiguousReference{reference, std::move(devices)});
    }
    return std::move(matches.front());
}

} // namespace ramdisk
