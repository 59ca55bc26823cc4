#pragma once

#include "RamDiskCore/Ports/CommandRunning.h"
#include "RamDiskCore/Ports/VolumeRenaming.h"

#include <memory>

namespace ramdisk {

/// Renames volumes with macOS's disk utility. A privately mounted volume keeps its mount folder.
class DiskUtilVolumeRenamer final : public VolumeRenaming {
public:
    explicit DiskUtilVolumeRenamer(std::shared_ptr<CommandRunning> runner);

    /// @throws RamDiskError `formattingFailed`, and `notMounted` for a disk without a mounted volume.
    void rename(const RamDisk& volume, const std::string& newName) override;

private:
    std::shared_ptr<CommandRunning> runner_;
};

} // namespace ramdisk
