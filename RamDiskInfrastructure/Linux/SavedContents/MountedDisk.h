#pragma once

#include "RamDiskCore/Values/RamDisk.h"
#include "RamDiskInfrastructure/Archive/SavedImageTool.h"
#include "RamDiskInfrastructure/Linux/Host/LinuxHost.h"
#include "RamDiskInfrastructure/Linux/SavedContents/LatestCopy.h"
#include "RamDiskInfrastructure/Linux/SavedContents/UnsavableFiles.h"
#include "RamDiskInfrastructure/Trees/TreeManifest.h"
#include "RamDiskInfrastructure/Trees/TreeUpdate.h"
#include "RamDiskInfrastructure/Trees/WriteWatch.h"

#include <filesystem>
#include <future>
#include <optional>

#include <sys/types.h>

namespace ramdisk {

/// A disk's volume, held by its open root folder. So this is the volume that is read or written, whatever
/// happens to its mount point meanwhile. An ordinary eject finds the disk in use.
class MountedDisk {
public:
    /// @throws RamDiskError `diskEjected` when nothing or another disk is mounted there;
    ///         `contentsTransferFailed` when disks are not mounts here.
    [[nodiscard]] static MountedDisk open(const RamDisk& disk, const LinuxHost& host);

    [[nodiscard]] const FileDescriptor& root() const noexcept { return root_; }
    /// Whether the mount point still leads to this volume.
    [[nodiscard]] bool isPresent() const;
    /// Where another volume is mounted on one of its folders, if one is.
    /// @throws SystemCallError
    [[nodiscard]] std::optional<std::filesystem::path> mountBelow(const LinuxHost& host) const;
    /// Whether the volume ignores letter case in names. This is tried with a file.
    /// @throws SystemCallError
    [[nodiscard]] bool mergesNames() const;
    /// Whether mappings of its files get huge pages when they ask for them.
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
    MountedSource(MountedDisk disk, LatestCopy latest);

    Status takeStatus(const ProgressObserver& observer) override;
    [[nodiscard]] bool isPresent() const override { return disk_.isPresent(); }
    [[nodiscard]] std::optional<std::string> leftOut() const override { return unsavable_.text(); }
    [[nodiscard]] const UnsavableFiles& unsavable() const noexcept { return unsavable_; }

    /// The latest copy of its files, as it was when this source was opened.
    [[nodiscard]] LatestCopy& latest() noexcept { return latest_; }
    /// The root folder of the disk, by a mount of our own: what others mounted upon folders of the disk does
    /// not hide what lies there. If the disk is watched, what this process opens through this folder is
    /// not reported to the watch, so the next status need not read it again.
    [[nodiscard]] const FileDescriptor& root() const noexcept {
        return watch_ ? watch_->root() : own_ ? own_ : disk_.root();
    }
    /// Makes the next status count as a changed one: what was copied is not what the last one says.
    void distrust() noexcept { isDistrusted_ = true; }
    /// The status that was taken last. If none was, it is taken now.
    [[nodiscard]] const TreeManifest& manifest();

private:
    MountedDisk disk_;
    LatestCopy latest_;
    /// The mount ends with this descriptor.
    FileDescriptor mount_;
    FileDescriptor own_;
    bool isDistrusted_ = false;
    std::optional<WriteWatch> watch_;
    std::future<void> ending_;
    /// All but what no image can hold.
    std::optional<TreeManifest> manifest_;
    UnsavableFiles unsavable_;
};

} // namespace ramdisk
