#include "RamDiskInfrastructure/MacServices/CFUserDefaults.h"
#include "RamDiskInfrastructure/MacServices/HomeFolder.h"
#include "RamDiskInfrastructure/PlatformStores.h"

namespace ramdisk {

PlatformStores makePlatformStores() {
    return makeStores(homeFolder() / "Library/Application Support/Tavrin RamDisk",
                      std::make_shared<CFUserDefaults>("com.tavrin.RamDisk"));
}

} // namespace ramdisk
