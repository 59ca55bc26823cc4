#include "RamDiskCore/Ports/RamDiskInventory.h"

#include <algorithm>

namespace ramdisk {

std::vector<RamDisk> RamDiskInventory::listOwn() {
    return list();
}

bool RamDiskInventory::isStillMounted(const RamDisk& disk) {
    const auto listed = list();
    return disk.mountPoint && std::any_of(listed.begin(), listed.end(), [&disk](const RamDisk& candidate) {
               return candidate.has(disk.device) && candidate.mountPoint == disk.mountPoint;
           });
}

bool RamDiskInventory::isSamePath(const std::filesystem::path& left,
                                  const std::filesystem::path& right) const {
    return left == right;
}

} // namespace ramdisk
