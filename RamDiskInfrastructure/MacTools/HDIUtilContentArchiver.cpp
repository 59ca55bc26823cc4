#include "RamDiskInfrastructure/MacTools/HDIUtilContentArchiver.h"

#include "RamDiskInfrastructure/MacTools/HDIUtilImageTool.h"

#include <utility>

namespace ramdisk {

HDIUtilContentArchiver::HDIUtilContentArchiver(HDIUtilImages::Ports ports,
                                               std::shared_ptr<const VolumeStatisticsReading> statistics)
    : archiver_(std::make_shared<HDIUtilImageTool>(std::move(ports), std::move(statistics))) {}

void HDIUtilContentArchiver::requireSupport(const RamDisk& disk) const {
    archiver_.requireSupport(disk);
}

SaveOutcome HDIUtilContentArchiver::save(const SaveRequest& request, const ProgressObserver& observer) {
    return archiver_.save(request, observer);
}

RestoredVolume HDIUtilContentArchiver::restore(const RestoreRequest& request,
                                               const ProgressObserver& observer) {
    return archiver_.restore(request, observer);
}

void HDIUtilContentArchiver::tidy(const SavedCopyFiles& files) {
    archiver_.tidy(files);
}

std::vector<SavedCopy> HDIUtilContentArchiver::copies(const SavedCopyFiles& files) {
    return archiver_.copies(files);
}

SavedVolume HDIUtilContentArchiver::describe(const std::filesystem::path& image,
                                             const VolumeProtection& protection) {
    return archiver_.describe(image, protection);
}

void HDIUtilContentArchiver::remove(const SavedCopyFiles& files) {
    archiver_.remove(files);
}

} // namespace ramdisk
