#include "RamDiskInfrastructure/Linux/Volumes/LoopVolumeRoot.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/Linux/Host/SmallFile.h"
#include "RamDiskInfrastructure/Linux/Mounting/Fscrypt.h"
#include "RamDiskInfrastructure/Linux/Volumes/LinuxFormat.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <string>

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace ramdisk {

std::filesystem::path LoopVolumeRoot::device(const std::filesystem::path& sys) const {
    struct stat status {};
    if (fstat(root_.get(), &status) != 0) {
        throw SystemCallError("look at a volume");
    }
    std::error_code error;
    return std::filesystem::canonical(
        sys / fmt::format("dev/block/{}:{}", major(status.st_dev), minor(status.st_dev)), error);
}

void LoopVolumeRoot::keepBackClusters(const std::filesystem::path& sys, std::uint64_t count) const {
    const auto setting = sys / "fs/ext4" / device(sys).filename() / "reserved_clusters";
    const FileDescriptor file(open(setting.c_str(), O_WRONLY | O_CLOEXEC));
    // A kernel without the setting keeps nothing back.
    if (!file && count == 0) {
        traceRefused("volumes", "reserved_clusters", "what the kernel keeps back stays kept back");
        return;
    }
    const auto text = std::to_string(count);
    if (!file || write(file.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        throw SystemCallError("write", setting);
    }
}

std::uint64_t LoopVolumeRoot::clustersBeyond(const std::filesystem::path& sys, ByteCount capacity) const {
    constexpr std::uint64_t sector = 512;
    const auto place = device(sys);
    struct statvfs volume {};
    if (fstatvfs(root_.get(), &volume) != 0) {
        throw SystemCallError("look at a volume");
    }
    if (place.empty() || access((sys / "fs/ext4" / place.filename()).c_str(), F_OK) != 0) {
        return 0;
    }
    const auto size =
        std::strtoull(tryReadSmallFile(place / "size").value_or("").c_str(), nullptr, 10) * sector;
    return size <= capacity.bytes ? 0 : (size - capacity.bytes) / volume.f_frsize;
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
