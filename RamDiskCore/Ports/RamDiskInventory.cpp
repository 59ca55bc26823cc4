#include "RamDiskCore/Ports/RamDiskInventory.h"

namespace ramdisk {

std::vector<RamDisk> RamDiskInventory::listOwn() {
    return list();
}

} // namespace ramdisk
