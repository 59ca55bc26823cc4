#include "RamDiskInfrastructure/MacServices/MediaIDs.h"
#include "RamDiskInfrastructure/MacTools/AttachedRamImage.h"
#include "RamDiskInfrastructure/Unix/MountedVolume.h"

#include <sys/mount.h>
#include <sys/param.h>

namespace ramdisk {

std::optional<MountedVolume> MountedVolume::at(const std::filesystem::path& location) {
    struct statfs status {};
    if (::statfs(location.c_str(), &status) != 0) {
        return std::nullopt;
    }
    MountedVolume volume{status.f_fstypename, std::nullopt};
    if (const auto device = deviceAtPath(status.f_mntfromname)) {
        volume.media = sharedMediaIDs().identifier(device->bsdName());
    }
    return volume;
}

} // namespace ramdisk
