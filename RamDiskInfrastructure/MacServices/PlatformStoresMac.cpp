#include "RamDiskInfrastructure/MacServices/CFUserDefaults.h"
#include "RamDiskInfrastructure/MacServices/HomeFolder.h"
#include "RamDiskInfrastructure/PlatformStores.h"

namespace ramdisk {

PlatformStores makePlatformStores() {
    return makeStores(applicationSupportFolder(), std::make_shared<CFUserDefaults>("com.tavrin.RamDisk"));
}

} // namespace ramdisk
