#include "RamDiskInfrastructure/Linux/Volumes/LinuxVolumes.h"

#include "RamDiskInfrastructure/Linux/Volumes/FolderVolume.h"
#include "RamDiskInfrastructure/Linux/Volumes/LoopVolume.h"
#include "RamDiskInfrastructure/Linux/Volumes/TmpfsVolume.h"

namespace ramdisk {

LinuxVolumes::LinuxVolumes(const LinuxHost& host, const std::shared_ptr<CommandRunning>& runner) {
    volumes_[VolumeKind::tmpfs] = std::make_unique<TmpfsVolume>(host);
    volumes_[VolumeKind::loop] = std::make_unique<LoopVolume>(host, runner);
    volumes_[VolumeKind::folder] = std::make_unique<FolderVolume>(host);
}

} // namespace ramdisk
