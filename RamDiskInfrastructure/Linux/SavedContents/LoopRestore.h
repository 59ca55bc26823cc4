#pragma once

#include "RamDiskInfrastructure/Archive/SavedImageTool.h"
#include "RamDiskInfrastructure/Linux/SavedContents/MountedDisk.h"
#include "RamDiskInfrastructure/Linux/SavedContents/OpenImage.h"
#include "RamDiskInfrastructure/Linux/SavedContents/ReadAhead.h"

namespace ramdisk {

/// Lets a restore use what the disk's file system keeps back from everybody, as long as this object exists. A
/// process that is killed meanwhile leaves it to all; the next restore, which the disk then needs, ends that.
class RestoreRoom {
public:
    /// `disk` must outlive the object.
    /// @throws SystemCallError
    RestoreRoom(const MountedDisk& disk, ByteCount capacity, std::filesystem::path sys);
    RestoreRoom(const RestoreRoom&) = delete;
    RestoreRoom& operator=(const RestoreRoom&) = delete;
    ~RestoreRoom();

private:
    const FileDescriptor& root_;
    std::filesystem::path sys_;
    std::uint64_t clusters_;
};

/// Puts the files of one image onto one disk.
class LoopRestore {
public:
    LoopRestore(const RestoreRequest& request, const LinuxHost& host) : request_(request), host_(host) {}

    /// @throws as `SavedImageTool::restore`.
    SavedImageTool::Closing perform(const ProgressObserver& observer) const;

private:
    SavedImageTool::Closing putBack(const MountedDisk& disk, const ProgressObserver& observer) const;
    void keepUnreadable() const noexcept;
    void copy(const OpenImage& image, const MountedDisk& disk, const ProgressObserver& observer) const;
    /// Whether the disk is full only because it was made without room for a restore.
    [[nodiscard]] bool couldHaveHadRoom(const OpenImage& image, const MountedDisk& disk) const;

    const RestoreRequest& request_;
    const LinuxHost& host_;
};

/// How much of an image may be read ahead of its use. More would push out of memory what was read before.
[[nodiscard]] ByteCount readAheadLimit(const LinuxHost& host);

} // namespace ramdisk
