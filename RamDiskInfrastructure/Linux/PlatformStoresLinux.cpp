#include "RamDiskInfrastructure/Linux/LinuxHost.h"
#include "RamDiskInfrastructure/PlatformStores.h"
#include "RamDiskInfrastructure/Stores/JSONUserDefaults.h"

namespace ramdisk {

PlatformStores makePlatformStores() {
    const auto host = LinuxHost::current();
    return makeStores(host.applicationSupport,
                      std::make_shared<JSONUserDefaults>(host.configuration, "com.tavrin.RamDisk"));
}

} // namespace ramdisk
