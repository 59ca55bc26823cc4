#include "RamDiskInfrastructure/MacTools/HDIUtilRamDiskInventory.h"

#include "RamDiskCore/Values/Text.h"
#include "RamDiskInfrastructure/MacTools/AttachedImageListing.h"

#include <algorithm>
#include <utility>

namespace ramdisk {

namespace {

/// The last component, also of a path that ends in a separator.
std::string lastComponent(const std::filesystem::path& path) {
    return path.has_filename() ? path.filename().string() : path.parent_path().filename().string();
}

} // namespace

HDIUtilRamDiskInventory::HDIUtilRamDiskInventory(Ports ports) : ports_(std::move(ports)) {}

std::vector<RamDisk> HDIUtilRamDiskInventory::list() {
    std::vector<RamDisk> disks;
    for (const auto& image : attachedRamImages(*ports_.runner)) {
        disks.push_back(ramDisk(image));
    }
    return disks;
}

bool HDIUtilRamDiskInventory::isSamePath(const std::filesystem::path& left,
                                         const std::filesystem::path& right) const {
    return decomposed(left.native()) == decomposed(right.native());
}

RamDisk HDIUtilRamDiskInventory::ramDisk(const AttachedRamImage& image) const {
    RamDisk disk{.device = image.device,
                 .name = "Unmounted " + image.device.bsdName(),
                 .capacity = image.capacity,
                 .mountPoint = image.mountPoint,
                 .fileSystemName = {},
                 .fileSystem = {},
                 .usage = {},
                 .isEncrypted = {},
                 .memoryFootprint = {},
                 .instance = {},
                 .attachment = ports_.media->identifier(image.device.bsdName()),
                 .devices = image.devices()};
    if (image.helperProcessID) {
        disk.memoryFootprint = ports_.footprints->footprint(*image.helperProcessID);
    }
    if (image.mountPoint) {
        addVolume(disk, *image.mountPoint);
    }
    return disk;
}

void HDIUtilRamDiskInventory::addVolume(RamDisk& disk, const std::filesystem::path& mountPoint) const {
    disk.name = lastComponent(mountPoint);
    if (auto statistics = ports_.statistics->read(mountPoint)) {
        disk.name = statistics->name.value_or(disk.name);
        disk.fileSystemName = std::move(statistics->formatDescription);
        disk.fileSystem = statistics->fileSystem;
        disk.usage = VolumeUsage{statistics->total, std::min(statistics->available, statistics->total)};
        disk.isEncrypted = statistics->isEncrypted;
    }
    const auto mark = ports_.marks->read(mountPoint);
    disk.isCreatedByRamDisk = mark.isSet;
    disk.instance = mark.instance;
    disk.access = ports_.privateMounts->contains(mountPoint) ? VolumeAccess::onlyMe : VolumeAccess::everyone;
}

} // namespace ramdisk
