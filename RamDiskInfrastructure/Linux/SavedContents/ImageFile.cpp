#include "RamDiskInfrastructure/Linux/SavedContents/ImageFile.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"

#include <fmt/format.h>

#include <fcntl.h>
#include <linux/fs.h>
#include <linux/loop.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace ramdisk {

namespace {

struct stat statusOf(const FileDescriptor& file, const std::filesystem::path& path) {
    struct stat status {};
    if (fstat(file.get(), &status) != 0) {
        throw SystemCallError("look at", path);
    }
    return status;
}

FileDescriptor makeFile(const std::filesystem::path& path, const LinuxHost& host) {
    FileDescriptor file(::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file) {
        throw SystemCallError("make", path);
    }
    if (host.owner != geteuid() && fchown(file.get(), host.owner, host.ownerGroup) != 0) {
        const SystemCallError error("hand over", path);
        unlink(path.c_str());
        throw error;
    }
    return file;
}

/// Whether this file lies behind the device; absent when the device does not tell.
std::optional<bool> liesBehind(unsigned loop, dev_t device, ino_t inode) {
    const FileDescriptor node(::open(LoopDevice::pathOf(loop).c_str(), O_RDONLY | O_CLOEXEC));
    loop_info64 info{};
    if (!node || ioctl(node.get(), LOOP_GET_STATUS64, &info) != 0) {
        // Nothing is behind it any more.
        return node && errno == ENXIO ? std::optional(false) : std::nullopt;
    }
    return info.lo_device == device && info.lo_inode == inode;
}

} // namespace

ImageFile::ImageFile(std::filesystem::path path, FileDescriptor file)
    : path_(std::move(path)),
      file_(std::move(file)) {
    const auto status = statusOf(file_, path_);
    device_ = status.st_dev;
    inode_ = status.st_ino;
}

ImageFile ImageFile::open(const std::filesystem::path& path, LoopAccess access, const LinuxHost& host) {
    const int mode = access == LoopAccess::readOnly ? O_RDONLY : O_RDWR;
    // Not waiting for a writer, should somebody have put a pipe there.
    FileDescriptor file(::open(path.c_str(), mode | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!file) {
        if (errno == ENOENT || errno == ENOTDIR) {
            throw RamDiskError(RamDiskError::ImageEjected{});
        }
        if (errno == ELOOP || errno == EACCES || errno == EPERM || errno == EISDIR || errno == ENXIO) {
            throw RamDiskError(RamDiskError::ImageUnreadable{});
        }
        throw SystemCallError("open", path);
    }
    const auto status = statusOf(file, path);
    const bool isOurs = status.st_uid == geteuid() || status.st_uid == host.owner;
    if (!S_ISREG(status.st_mode) || !isOurs) {
        throw RamDiskError(RamDiskError::ImageUnreadable{});
    }
    return {path, std::move(file)};
}

ImageFile ImageFile::create(const std::filesystem::path& path, ByteCount size, const LinuxHost& host) {
    ImageFile made(path, makeFile(path, host));
    if (ftruncate(made.file_.get(), static_cast<off_t>(size.bytes)) != 0) {
        const SystemCallError error("give its size to", path);
        unlink(path.c_str());
        throw error;
    }
    return made;
}

std::optional<ImageFile> ImageFile::clone(const ImageFile& original, const std::filesystem::path& path,
                                          const LinuxHost& host) {
    ImageFile made(path, makeFile(path, host));
    if (ioctl(made.file_.get(), FICLONE, original.file_.get()) != 0) {
        traceRefused("save", "FICLONE", "the latest copy cannot be the start of the next one");
        unlink(path.c_str());
        return std::nullopt;
    }
    return made;
}

bool ImageFile::canBeCloned() const {
    const auto folder = path_.parent_path();
    const FileDescriptor trial(::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
    return trial && ioctl(trial.get(), FICLONE, file_.get()) == 0;
}

ByteCount ImageFile::size() const {
    return {static_cast<std::uint64_t>(statusOf(file_, path_).st_size)};
}

ByteCount ImageFile::allocated() const {
    return {static_cast<std::uint64_t>(statusOf(file_, path_).st_blocks) * 512};
}

bool ImageFile::isStillThere() const {
    struct stat status {};
    return lstat(path_.c_str(), &status) == 0 && status.st_dev == device_ && status.st_ino == inode_;
}

std::vector<unsigned> ImageFile::loops(const std::filesystem::path& sys) const {
    std::vector<unsigned> found;
    try {
        for (const auto& [number, path] : LoopDevices{sys}.backingFiles()) {
            struct stat status {};
            // The path is that of another time or another namespace, perhaps: only a match proves anything.
            if (stat(path.c_str(), &status) == 0 && status.st_dev == device_ && status.st_ino == inode_) {
                found.push_back(number);
                continue;
            }
            const auto lies = liesBehind(number, device_, inode_);
            if (!lies && path.filename() == path_.filename()) {
                throw RamDiskError(RamDiskError::ImageStateUnknown{});
            }
            if (lies.value_or(false)) {
                found.push_back(number);
            }
        }
    } catch (const SystemCallError&) {
        traceCaught("images", "whether an image is open is not known");
        throw RamDiskError(RamDiskError::ImageStateUnknown{});
    }
    return found;
}

void ImageFile::requireClosed(const std::filesystem::path& sys) const {
    if (!loops(sys).empty()) {
        throw RamDiskError(RamDiskError::ImageOpenAlready{});
    }
}

void ImageFile::flush() const {
    if (fsync(file_.get()) != 0) {
        throw SystemCallError("write to the system disk", path_);
    }
}

void ImageFile::dropCache() const noexcept {
    static_cast<void>(posix_fadvise(file_.get(), 0, 0, POSIX_FADV_DONTNEED));
}

ByteCount roomBeside(const std::filesystem::path& path) {
    struct statvfs status {};
    const auto folder = path.parent_path();
    if (statvfs(folder.c_str(), &status) != 0) {
        throw SystemCallError("look at", folder);
    }
    return {std::uint64_t{status.f_bavail} * status.f_frsize};
}

} // namespace ramdisk
