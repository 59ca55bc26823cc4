#include "RamDiskInfrastructure/Linux/Volumes/LoopVolumeRoot.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/Linux/Mounting/Fscrypt.h"
#include "RamDiskInfrastructure/Linux/Volumes/LinuxFormat.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdint>

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace ramdisk {

void LoopVolumeRoot::freeReservedClusters(const std::filesystem::path& sys) const {
    struct stat status {};
    if (fstat(root_.get(), &status) != 0) {
        throw SystemCallError("look at a new volume");
    }
    std::error_code error;
    const auto device = std::filesystem::canonical(
        sys / fmt::format("dev/block/{}:{}", major(status.st_dev), minor(status.st_dev)), error);
    const auto setting = sys / "fs/ext4" / device.filename() / "reserved_clusters";
    const FileDescriptor file(open(setting.c_str(), O_WRONLY | O_CLOEXEC));
    // A kernel without the setting keeps nothing back.
    if (!file) {
        traceRefused("volumes", "reserved_clusters", "what the kernel keeps back stays kept back");
    }
    if (!error && file && write(file.get(), "0", 1) != 1) {
        throw SystemCallError("write", setting);
    }
}

void LoopVolumeRoot::removeLostAndFound() const {
    if (unlinkat(root_.get(), "lost+found", AT_REMOVEDIR) != 0 && errno != ENOENT) {
        throw SystemCallError("tidy a new volume");
    }
}

void LoopVolumeRoot::foldCase() const {
    constexpr int casefold = 0x40000000;
    int flags = 0;
    if (ioctl(root_.get(), FS_IOC_GETFLAGS, &flags) != 0) {
        throw SystemCallError("read the flags of a new volume");
    }
    flags |= casefold;
    if (ioctl(root_.get(), FS_IOC_SETFLAGS, &flags) != 0) {
        throw SystemCallError("make a new volume fold the case of names");
    }
}

void LoopVolumeRoot::setMode(mode_t mode) const {
    if (fchmod(root_.get(), mode) != 0) {
        throw SystemCallError("set who may open a new volume");
    }
}

void LoopVolumeRoot::concealMountPoint() const {
    const FileDescriptor file(openat(root_.get(), ".", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
    if (!file) {
        throw SystemCallError("open a file on a new volume");
    }
}

FileDescriptor LoopVolumeRoot::makeEncryptedFolder(const VolumePassphrase& passphrase, const LinuxHost& host,
                                                   const char* name) const {
    if (mkdirat(root_.get(), name, 0700) != 0) {
        throw SystemCallError("make the encrypted folder of a new volume");
    }
    auto folder = openFolder(root_.get(), name);
    if (!folder) {
        throw SystemCallError("open the encrypted folder of a new volume");
    }
    Fscrypt::encrypt(root_.get(), folder.get(), passphrase);
    if (fchown(folder.get(), host.owner, host.ownerGroup) != 0) {
        throw SystemCallError("hand over the encrypted folder of a new volume");
    }
    return folder;
}

void LoopVolumeRoot::setLabel(const std::filesystem::path& mountPoint, const std::string& name) {
    std::array<char, FSLABEL_MAX> label{};
    const auto text = LinuxFormat::extLabel(name);
    std::copy(text.begin(), text.end(), label.begin());
    const auto root = openFolder(AT_FDCWD, mountPoint.c_str());
    if (root && ioctl(root.get(), FS_IOC_SETFSLABEL, label.data()) != 0) {
        traceRefused("volumes", "FS_IOC_SETFSLABEL", "the label stays as it was");
    }
}

void LoopVolumeRoot::shutDown(const std::filesystem::path& mountPoint) {
    // EXT4_IOC_SHUTDOWN with its flag to leave the log as it is; the contents are given up anyway.
    constexpr auto shutdownRequest = _IOR('X', 125, std::uint32_t);
    std::uint32_t withoutFlushing = 2;
    const auto root = openFolder(AT_FDCWD, mountPoint.c_str());
    // Where it is not ext4, writers go on until they close their files; the memory is told as held meanwhile.
    if (root && ioctl(root.get(), shutdownRequest, &withoutFlushing) != 0) {
        traceRefused("volumes", "EXT4_IOC_SHUTDOWN", "programs may write until they close their files");
    }
}

} // namespace ramdisk
