#include "RamDiskCore/Ports/RamDiskInventory.h"

namespace ramdisk {

std::vector<RamDisk> RamDiskInventory::listOwn() {
    return list();
}

bool RamDiskInventory::isSamePath(const std::filesystem::path& left,
                                  const std::filesystem::path& right) const {
    return left == right;
}

} // namespace ramdisk
