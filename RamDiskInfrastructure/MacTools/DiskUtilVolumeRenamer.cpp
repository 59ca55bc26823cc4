#include "RamDiskInfrastructure/MacTools/DiskUtilVolumeRenamer.h"

#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskInfrastructure/MacTools/MacFormat.h"
#include "RamDiskInfrastructure/MacTools/ToolPaths.h"

#include <utility>

namespace ramdisk {

DiskUtilVolumeRenamer::DiskUtilVolumeRenamer(std::shared_ptr<CommandRunning> runner)
    : runner_(std::move(runner)) {}

void DiskUtilVolumeRenamer::rename(const RamDisk& volume, const std::string& newName) {
    // The mount point names the volume; the device may be the image under an APFS container.
    if (!volume.mountPoint) {
        throw RamDiskError(RamDiskError::NotMounted{volume.device});
    }
    try {
        const auto name = volume.fileSystem ? volumeNameFor(*volume.fileSystem, newName) : newName;
        runner_->runChecked(
            {toolPaths::diskutil, {"rename", volume.mountPoint->string(), name}, std::nullopt, std::nullopt});
    } catch (const std::exception& error) {
        throw RamDiskError(RamDiskError::FormattingFailed{error.what()});
    }
}

} // namespace ramdisk
