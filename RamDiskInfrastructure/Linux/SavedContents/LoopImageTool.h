#pragma once

#include "RamDiskCore/Ports/CommandRunning.h"
#include "RamDiskInfrastructure/Archive/SavedImageTool.h"
#include "RamDiskInfrastructure/Linux/Host/LinuxHost.h"

#include <memory>

namespace ramdisk {

/// Saved images as Linux has them: a sparse file that holds a journaled ext4, mounted through a loop device
/// where nobody but this process sees it. When the process is killed, mount and loop device go with it.
///
/// A new image starts from an earlier one wherever that can be done without touching the earlier one: from a
/// clone of the latest, where the system disk's file system can share blocks between files, else from a spare
/// image whose contents were given up. Only what differs is then written. What differs is told by the
/// manifest inside the image, and by hashing the disk, never by dates.
///
/// Safe from any thread.
class LoopImageTool final : public SavedImageTool {
public:
    LoopImageTool(LinuxHost host, std::shared_ptr<CommandRunning> runner);

    void requireSupport(const RamDisk& disk) const override;
    [[nodiscard]] int rounds() const noexcept override { return 3; }
    [[nodiscard]] std::unique_ptr<SaveSource> openSource(const SaveRequest& request) override;
    void verify(const std::filesystem::path& image, const VolumeProtection& protection) override;
    void retire(const std::filesystem::path& image, const SavedCopyFiles& files) noexcept override;
    Closing restore(const RestoreRequest& request, const ProgressObserver& observer) override;
    [[nodiscard]] SavedVolume describe(const std::filesystem::path& image,
                                       const VolumeProtection& protection) override;

private:
    LinuxHost host_;
    std::shared_ptr<CommandRunning> runner_;
};

} // namespace ramdisk
