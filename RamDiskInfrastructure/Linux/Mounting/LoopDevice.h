#pragma once

#include "RamDiskCore/Values/ByteCount.h"
#include "RamDiskInfrastructure/Commands/FileDescriptor.h"

#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <sys/types.h>

namespace ramdisk {

/// A file in memory that has no name in any folder. The kernel shows it as "/memfd:TAG (deleted)".
/// @throws SystemCallError
[[nodiscard]] FileDescriptor makeMemoryFile(const std::string& tag, ByteCount size);

/// What may be done through a loop device.
enum class LoopAccess {
    readWrite,
    /// What is written goes straight to the file if its file system can do that, and is not held in memory
    /// twice.
    writeThrough,
    readOnly,
};

/// A block device on top of a file. If the file has no name, only the device keeps it alive. The kernel
/// removes the device when its last user is gone: first this object, while the volume is being made, then the
/// mount. A killed process leaves none.
class LoopDevice {
public:
    /// Puts the first `capacity` bytes of `file` behind a free loop device. The rest of the file is room to
    /// grow.
    /// @throws SystemCallError
    [[nodiscard]] static LoopDevice attach(const FileDescriptor& file, const std::string& tag,
                                           ByteCount capacity, LoopAccess access = LoopAccess::readWrite);

    [[nodiscard]] unsigned number() const noexcept { return number_; }
    [[nodiscard]] std::filesystem::path path() const { return pathOf(number_); }
    [[nodiscard]] static std::filesystem::path pathOf(unsigned number);

private:
    LoopDevice(unsigned number, FileDescriptor device) : number_(number), device_(std::move(device)) {}

    unsigned number_;
    FileDescriptor device_;
};

/// What the kernel shows about loop devices.
struct LoopDevices {
    std::filesystem::path sys;

    /// Whether the memory file with this tag is behind the device now.
    [[nodiscard]] bool carries(unsigned number, const std::string& tag) const;

    /// The device's size; absent when nothing is behind it.
    [[nodiscard]] std::optional<ByteCount> size(unsigned number) const;

    /// Every device that has a file behind it now, with the file's path as the kernel shows it.
    /// @throws SystemCallError when the devices cannot be listed.
    [[nodiscard]] std::vector<std::pair<unsigned, std::filesystem::path>> backingFiles() const;

    /// The file system and the file that lie behind the device, zeros when nothing does. Absent when the
    /// device does not tell, as it does to few but root.
    struct Backing {
        dev_t device = 0;
        ino_t file = 0;
    };
    [[nodiscard]] static std::optional<Backing> backing(unsigned number) noexcept;

    /// Waits up to a second until `carries` is false. The kernel clears a device a moment after its last
    /// user, and programs that look at new devices may hold it a little longer.
    [[nodiscard]] bool isReleased(unsigned number, const std::string& tag) const;
};

} // namespace ramdisk
