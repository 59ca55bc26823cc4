#include "RamDiskInfrastructure/MacServices/DeviceNodes.h"

#include <string>

#include <sys/stat.h>

namespace ramdisk {

namespace {

bool closeNode(const std::string& path) {
    if (::chmod(path.c_str(), S_IRUSR | S_IWUSR) == 0) {
        return true;
    }
    // A node of the system's own is its to open and close; its group is that of the backup tools.
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && status.st_uid == 0 && (status.st_mode & S_IRWXO) == 0;
}

} // namespace

bool closeDeviceNodes(const DeviceIdentifier& device) {
    const bool isBlockClosed = closeNode("/dev/" + device.bsdName());
    const bool isRawClosed = closeNode("/dev/r" + device.bsdName());
    return isBlockClosed && isRawClosed;
}

} // namespace ramdisk
