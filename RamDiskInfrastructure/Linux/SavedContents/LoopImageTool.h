#pragma once

#include "RamDiskCore/Ports/CommandRunning.h"
#include "RamDiskInfrastructure/Archive/SavedImageTool.h"
#include "RamDiskInfrastructure/Linux/Host/LinuxHost.h"

#include <memory>

namespace ramdisk {

/// Saved images on Linux: a sparse file with a journaled ext4. It is mounted through a loop device where only
/// this process sees it. When the process is killed, mount and loop device vanish with it.
///
/// A new image starts from an existing one if that leaves every copy untouched: from a clone of the latest
/// copy, if the system disk's file system can share blocks between files, otherwise from the spare. Then only
/// what differs is written. What differs is found out by the manifest inside the image and by hashing the
/// disk, never by dates.
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
