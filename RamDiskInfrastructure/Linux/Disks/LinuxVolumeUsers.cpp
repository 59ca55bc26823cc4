#include "RamDiskInfrastructure/Linux/Disks/LinuxVolumeUsers.h"

#include "RamDiskInfrastructure/Linux/Host/MountTable.h"
#include "RamDiskInfrastructure/Linux/Host/OpenFiles.h"
#include "RamDiskInfrastructure/Unix/LsofVolumeUsers.h"

#include <optional>

#include <unistd.h>

namespace ramdisk {

namespace {

std::optional<std::filesystem::path> installedLsof() {
    for (const char* path : {"/usr/bin/lsof", "/usr/sbin/lsof"}) {
        if (access(path, X_OK) == 0) {
            return path;
        }
    }
    return std::nullopt;
}

} // namespace

std::vector<VolumeUser> LinuxVolumeUsers::users(const std::filesystem::path& mountPoint) {
    const auto mounts = MountTable::read(proc_);
    const auto* mount = mounts.topmostAt(mountPoint);
    if (mount == nullptr) {
        return OpenFiles::find(proc_, {FilesPlace::Folder{mountPoint}}).users;
    }
    if (const auto lsof = installedLsof()) {
        return LsofVolumeUsers(runner_, *lsof).users(mountPoint);
    }
    return OpenFiles::find(proc_, {FilesPlace::Device{mount->device}}).users;
}

} // namespace ramdisk
