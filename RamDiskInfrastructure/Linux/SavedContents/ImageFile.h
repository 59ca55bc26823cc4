#pragma once

#include "RamDiskCore/Values/ByteCount.h"
#include "RamDiskInfrastructure/Commands/FileDescriptor.h"
#include "RamDiskInfrastructure/Linux/Host/LinuxHost.h"
#include "RamDiskInfrastructure/Linux/Mounting/LoopDevice.h"

#include <filesystem>
#include <optional>
#include <vector>

#include <sys/types.h>

namespace ramdisk {

/// The open file of a saved image. Images lie in the user's home folder, where any program of this user may
/// have put anything. So no link is followed, and another user's file is not opened.
class ImageFile {
public:
    /// @throws RamDiskError `imageEjected` when there is none; `imageUnreadable` when it is not a regular
    ///         file, or not ours.
    [[nodiscard]] static ImageFile open(const std::filesystem::path& path, LoopAccess access,
                                        const LinuxHost& host);

    /// Makes an empty file of this size, which takes no space yet. The file must not exist.
    /// @throws SystemCallError
    [[nodiscard]] static ImageFile create(const std::filesystem::path& path, ByteCount size,
                                          const LinuxHost& host);

    /// Makes a file that shares its contents with `original` until one of the two is changed.
    /// @returns nothing, and makes no file, if the file system cannot do that.
    /// @throws SystemCallError
    [[nodiscard]] static std::optional<ImageFile>
    clone(const ImageFile& original, const std::filesystem::path& path, const LinuxHost& host);

    /// Whether `clone` works on the file system of this file.
    [[nodiscard]] bool canBeCloned() const;

    [[nodiscard]] const std::filesystem::path& path() const noexcept { return path_; }
    [[nodiscard]] const FileDescriptor& descriptor() const noexcept { return file_; }
    /// @throws SystemCallError
    [[nodiscard]] ByteCount size() const;
    /// How much space it takes on the system disk.
    /// @throws SystemCallError
    [[nodiscard]] ByteCount allocated() const;

    /// Whether the file has no other name, so that nobody else has it as a copy.
    [[nodiscard]] bool hasOneName() const noexcept;

    /// Whether the file still has its name.
    [[nodiscard]] bool isStillThere() const;

    /// The loop devices that have the file behind them now.
    /// @throws RamDiskError `imageStateUnknown` when that cannot be found out.
    [[nodiscard]] std::vector<unsigned> loops(const std::filesystem::path& sys) const;

    /// @throws RamDiskError `imageOpenAlready`, `imageStateUnknown`
    void requireClosed(const std::filesystem::path& sys) const;

    /// Waits until everything written is on the system disk.
    /// @throws SystemCallError
    void flush() const;

    /// Makes the kernel drop what it has cached of the file, so that the next read comes from the system
    /// disk.
    void dropCache() const noexcept;

private:
    ImageFile(std::filesystem::path path, FileDescriptor file);

    std::filesystem::path path_;
    FileDescriptor file_;
    dev_t device_ = 0;
    ino_t inode_ = 0;
};

/// How much space the system disk has left for files at `path`.
/// @throws SystemCallError
[[nodiscard]] ByteCount roomBeside(const std::filesystem::path& path);

} // namespace ramdisk
