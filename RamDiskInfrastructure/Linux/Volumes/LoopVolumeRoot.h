#pragma once

#include "RamDiskCore/Values/VolumePassphrase.h"
#include "RamDiskInfrastructure/Commands/FileDescriptor.h"
#include "RamDiskInfrastructure/Linux/Host/LinuxHost.h"

#include <filesystem>

#include <sys/types.h>

namespace ramdisk {

/// What is done to a fresh ext4 before anybody sees it. All through its root's descriptor, which stays the
/// caller's.
class LoopVolumeRoot {
public:
    explicit LoopVolumeRoot(const FileDescriptor& root) : root_(root) {}

    /// Gives the user the space that ext4 keeps back for its own late allocations.
    void freeReservedClusters(const std::filesystem::path& sys) const;

    /// Removes the empty folder that only a file system check would use; a check makes it anew.
    /// @throws SystemCallError
    void removeLostAndFound() const;

    /// Has the empty root take names that differ only in case for one another.
    /// @throws SystemCallError
    void foldCase() const;

    /// @throws SystemCallError
    void setMode(mode_t mode) const;

    /// Has the file system note nothing telling as the place of its mount: ext4 writes that in the clear when
    /// its first file is opened, and the place holds the disk's name. Called while the volume is out of
    /// sight.
    /// @throws SystemCallError
    void concealMountPoint() const;

    /// Makes a folder whose contents are encrypted, to be used as the volume's root: the file system's own
    /// root cannot be.
    /// @throws SystemCallError
    [[nodiscard]] FileDescriptor makeEncryptedFolder(const VolumePassphrase& passphrase,
                                                     const LinuxHost& host,
                                                     const char* name = "volume") const;

    /// Sets the label as far as the file system takes it: it is an ornament, the record holds the name.
    static void setLabel(const std::filesystem::path& mountPoint, const std::string& name);

    /// Ends all writing to a mounted ext4, so that programs which keep its files open cannot go on unseen.
    static void shutDown(const std::filesystem::path& mountPoint);

private:
    const FileDescriptor& root_;
};

} // namespace ramdisk
