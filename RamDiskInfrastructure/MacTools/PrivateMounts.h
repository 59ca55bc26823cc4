#pragma once

#include "RamDiskCore/Values/DeviceIdentifier.h"
#include "RamDiskInfrastructure/Commands/FileDescriptor.h"

#include <filesystem>
#include <functional>
#include <string_view>

namespace ramdisk {

/// The folder in the user's home that holds the mount points of disks which nobody else may open.
///
/// Mount points are plain empty folders. A crash leaves at most such a folder, and the next eject or private
/// mount removes it. Several processes may use the directory at once. An advisory lock on it keeps one
/// process from removing the still empty mount point of another.
class PrivateMounts {
public:
    /// Gives a device's block and raw nodes to their owner alone. False when others could still open them.
    using CloseDevice = std::function<bool(const DeviceIdentifier&)>;

    /// A new mount point. Its folder is removed with this object unless `keep` was called.
    class MountPoint {
    public:
        MountPoint(MountPoint&& other) noexcept;
        MountPoint(const MountPoint&) = delete;
        MountPoint& operator=(const MountPoint&) = delete;
        MountPoint& operator=(MountPoint&&) = delete;
        ~MountPoint();

        [[nodiscard]] const std::filesystem::path& path() const noexcept { return path_; }
        /// A volume is mounted here now.
        void keep() noexcept { isKept_ = true; }

    private:
        friend class PrivateMounts;
        MountPoint(std::filesystem::path path, FileDescriptor lock);

        std::filesystem::path path_;
        FileDescriptor lock_;
        bool isKept_ = false;
    };

    PrivateMounts(std::filesystem::path directory, CloseDevice closeDevice);

    [[nodiscard]] const std::filesystem::path& directory() const noexcept { return directory_; }

    /// Whether `mountPoint` lies inside the directory.
    [[nodiscard]] bool contains(const std::filesystem::path& mountPoint) const;

    /// Makes an empty folder for a volume, and the directory itself (mode 0700) if it is missing. The folder
    /// has the volume's name; if that is taken, a number follows it.
    /// @throws std::system_error
    [[nodiscard]] MountPoint makeMountPoint(std::string_view volumeName) const;

    /// Removes the folders of volumes that are gone. Never touches a folder that is not empty, and does
    /// nothing while another process is mounting.
    void removeEmptyMountPoints() const noexcept;

    [[nodiscard]] bool closeDevice(const DeviceIdentifier& device) const { return closeDevice_(device); }

private:
    std::filesystem::path directory_;
    CloseDevice closeDevice_;
};

} // namespace ramdisk
