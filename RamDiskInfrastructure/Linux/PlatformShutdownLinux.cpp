#include "RamDiskInfrastructure/Linux/LogindShutdownDelay.h"
#include "RamDiskInfrastructure/PlatformShutdown.h"

namespace ramdisk {

std::unique_ptr<ShutdownDelaying> makeShutdownDelay() {
    return std::make_unique<LogindShutdownDelay>();
}

} // namespace ramdisk
