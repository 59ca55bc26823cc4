#pragma once

#include "RamDiskCore/Values/RamDisk.h"
#include "RamDiskInfrastructure/Archive/SavedImageTool.h"
#include "RamDiskInfrastructure/Linux/Host/LinuxHost.h"
#include "RamDiskInfrastructure/Linux/SavedContents/LatestCopy.h"
#include "RamDiskInfrastructure/Trees/TreeManifest.h"
#include "RamDiskInfrastructure/Trees/TreeUpdate.h"
#include "RamDiskInfrastructure/Trees/WriteWatch.h"

#include <filesystem>
#include <future>

#include <sys/types.h>

namespace ramdisk {

/// A disk's volume, held by its open root folder: whatever happens to its mount point meanwhile, this is the
/// volume that is read or written, and an eject by ordinary means finds it in use.
class MountedDisk {
public:
    /// @throws RamDiskError `diskEjected` when it is not mounted where it should be, or another disk is;
    ///         `contentsTransferFailed` where disks are no mounts.
    [[nodiscard]] static MountedDisk open(const RamDisk& disk, const LinuxHost& host);

    [[nodiscard]] const FileDescriptor& root() const noexcept { return root_; }
    /// Whether the mount point still leads to this volume.
    [[nodiscard]] bool isPresent() const;
    /// Whether the volume takes names that differ only in letter case for one another. Tried with a file.
    /// @throws SystemCallError
    [[nodiscard]] bool mergesNames() const;
    /// Whether mappings of its files that ask for huge pages get them.
    /// @throws SystemCallError
    [[nodiscard]] HugePages hugePages(const LinuxHost& host) const;

private:
    MountedDisk(std::filesystem::path mountPoint, FileDescriptor root)
        : mountPoint_(std::move(mountPoint)),
          root_(std::move(root)) {}

    std::filesystem::path mountPoint_;
    FileDescriptor root_;
};

/// A disk that is being saved.
class MountedSource : public SaveSource {
public:
    MountedSource(MountedDisk disk, LatestCopy latest) : disk_(std::move(disk)), latest_(std::move(latest)) {}

    Status takeStatus(const ProgressObserver& observer) override;
    [[nodiscard]] bool isPresent() const override { return disk_.isPresent(); }

    /// The latest copy of its files, as it was when this source was opened.
    [[nodiscard]] LatestCopy& latest() noexcept { return latest_; }
    /// What is opened by way of this folder is no reason to read it again at the next status.
    [[nodiscard]] const FileDescriptor& root() const noexcept {
        return watch_ ? watch_->root() : disk_.root();
    }
    /// The status taken last; taken now when none was.
    [[nodiscard]] const TreeManifest& manifest();

private:
    MountedDisk disk_;
    LatestCopy latest_;
    std::optional<WriteWatch> watch_;
    std::future<void> ending_;
    std::optional<TreeManifest> manifest_;
};

} // namespace ramdisk
