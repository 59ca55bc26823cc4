#pragma once

#include "RamDiskCore/Values/ByteCount.h"
#include "RamDiskCore/Values/VolumePassphrase.h"
#include "RamDiskInfrastructure/Commands/FileDescriptor.h"
#include "RamDiskInfrastructure/Linux/Host/LinuxHost.h"

#include <cstdint>
#include <filesystem>

#include <sys/types.h>

namespace ramdisk {

/// What is done to a new ext4 before anybody sees it. Everything goes through the descriptor of its root,
/// which the caller keeps.
class LoopVolumeRoot {
public:
    explicit LoopVolumeRoot(const FileDescriptor& root) : root_(root) {}

    /// Makes ext4 keep back so many clusters, from root as well, for its own late allocations.
    /// @throws SystemCallError when the kernel refuses; not when it lacks the setting and `count` is 0.
    void keepBackClusters(const std::filesystem::path& sys, std::uint64_t count) const;

    /// How many clusters the device has beyond `capacity`. None on a device of that size, and on file systems
    /// other than ext4.
    /// @throws SystemCallError
    [[nodiscard]] std::uint64_t clustersBeyond(const std::filesystem::path& sys, ByteCount capacity) const;

    /// Removes the empty folder that only a file system check uses. A check makes it again.
    /// @throws SystemCallError
    void removeLostAndFound() const;

    /// Makes the empty root ignore letter case in names.
    /// @throws SystemCallError
    void foldCase() const;

    /// @throws SystemCallError
    void setMode(mode_t mode) const;

    /// Makes the file system store a meaningless mount point. When its first file is opened, ext4 stores the
    /// mount point unencrypted, and the mount point contains the disk's name. Call this while the volume is
    /// out of sight.
    /// @throws SystemCallError
    void concealMountPoint() const;

    /// Makes a folder whose contents are encrypted, to be used as the volume's root, since the file system's
    /// own root cannot be encrypted.
    /// @throws SystemCallError
    [[nodiscard]] FileDescriptor makeEncryptedFolder(const VolumePassphrase& passphrase,
                                                     const LinuxHost& host,
                                                     const char* name = "volume") const;

    /// Sets the label, as much of it as the file system takes. The label is only for show: the record holds
    /// the name.
    static void setLabel(const std::filesystem::path& mountPoint, const std::string& name);

    /// Ends all writing to a mounted ext4, so that programs with open files cannot go on unseen.
    static void shutDown(const std::filesystem::path& mountPoint);

private:
    [[nodiscard]] std::filesystem::path device(const std::filesystem::path& sys) const;

    const FileDescriptor& root_;
};

} // namespace ramdisk
