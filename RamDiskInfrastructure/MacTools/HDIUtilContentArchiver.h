#pragma once

#include "RamDiskCore/Ports/ContentArchiving.h"
#include "RamDiskInfrastructure/Archive/SavedContentsArchiver.h"
#include "RamDiskInfrastructure/MacTools/HDIUtilImages.h"
#include "RamDiskInfrastructure/MacTools/VolumeStatisticsReading.h"
#include "RamDiskInfrastructure/Unix/MountedVolume.h"

#include <chrono>
#include <filesystem>
#include <memory>

namespace ramdisk {

/// Saves the files of disks into sparse images, which macOS's own tools make, fill and open. So a saved copy
/// can be opened on any Mac without this system.
class HDIUtilContentArchiver final : public ContentArchiving {
public:
    /// A mounted disk, and what tells its volume from another one that is mounted there later.
    struct MadeVolume {
        RamDisk disk;
        std::filesystem::path mountPoint;
        MountedVolume volume;
    };
    /// What shows whether an item changed.
    struct FileStatus {
        std::chrono::sys_time<std::chrono::nanoseconds> changed;
        bool isFolder = false;

        friend bool operator==(const FileStatus&, const FileStatus&) = default;
    };

    HDIUtilContentArchiver(HDIUtilImages::Ports ports,
                           std::shared_ptr<const VolumeStatisticsReading> statistics);

    void requireSupport(const RamDisk& disk) const override;
    SaveOutcome save(const SaveRequest& request, const ProgressObserver& observer) override;
    RestoredVolume restore(const RestoreRequest& request, const ProgressObserver& observer) override;
    void tidy(const SavedCopyFiles& files) override;
    [[nodiscard]] std::vector<SavedCopy> copies(const SavedCopyFiles& files) override;
    [[nodiscard]] SavedVolume describe(const std::filesystem::path& image,
                                       const VolumeProtection& protection) override;
    void remove(const SavedCopyFiles& files) override;

private:
    SavedContentsArchiver archiver_;
};

} // namespace ramdisk
