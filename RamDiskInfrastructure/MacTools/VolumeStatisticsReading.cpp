#include "RamDiskInfrastructure/MacTools/VolumeStatisticsReading.h"

namespace ramdisk {

std::optional<FileSystem> fileSystemOfMountType(std::string_view type, CaseSensitivity names,
                                                Journaling journaling) {
    if (type == "apfs") {
        return names == CaseSensitivity::sensitive ? FileSystem::apfsCaseSensitive : FileSystem::apfs;
    }
    if (type == "hfs" && names == CaseSensitivity::insensitive) {
        return journaling == Journaling::on ? FileSystem::journaledHFSPlus : FileSystem::hfsPlus;
    }
    if (type == "exfat") {
        return FileSystem::exFAT;
    }
    if (type == "msdos") {
        return FileSystem::fat32;
    }
    return std::nullopt;
}

} // namespace ramdisk
