#include "RamDiskInfrastructure/Linux/SavedContents/ImageFile.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/Stores/StoreFiles.h"
#include "RamDiskInfrastructure/Stores/StoreFolder.h"

#include <fmt/format.h>

#include <fcntl.h>
#include <linux/fs.h>
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
    auto file = stored::open(path, O_RDWR | O_CREAT | O_EXCL, 0600);
    if (!file) {
        throw SystemCallError("make", path);
    }
    if (host.owner != geteuid() && fchown(file.get(), host.owner, host.ownerGroup) != 0) {
        const SystemCallError error("hand over", path);
        static_cast<void>(stored::remove(path));
        throw error;
    }
    return file;
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
    auto file = stored::open(path, mode | O_NONBLOCK | O_NOCTTY);
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
        static_cast<void>(stored::remove(path));
        throw error;
    }
    return made;
}

std::optional<ImageFile> ImageFile::clone(const ImageFile& original, const std::filesystem::path& path,
                                          const LinuxHost& host) {
    ImageFile made(path, makeFile(path, host));
    if (ioctl(made.file_.get(), FICLONE, original.file_.get()) != 0) {
        traceRefused("save", "FICLONE", "the latest copy cannot be the start of the next one");
        static_cast<void>(stored::remove(path));
        return std::nullopt;
    }
    return made;
}

bool ImageFile::canBeCloned() const {
    const auto folder = openStoreFolder(path_.parent_path());
    const FileDescriptor trial(folder ? openat(folder.get(), ".", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600) : -1);
    return trial && ioctl(trial.get(), FICLONE, file_.get()) == 0;
}

ByteCount ImageFile::size() const {
    return {static_cast<std::uint64_t>(statusOf(file_, path_).st_size)};
}

ByteCount ImageFile::allocated() const {
    return {static_cast<std::uint64_t>(statusOf(file_, path_).st_blocks) * 512};
}

bool ImageFile::hasOneName() const noexcept {
    struct stat status {};
    return fstat(file_.get(), &status) == 0 && status.st_nlink == 1;
}

bool ImageFile::isStillThere() const {
    struct stat status {};
    return stored::status(path_, status) == 0 && status.st_dev == device_ && status.st_ino == inode_;
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
            const auto backing = LoopDevices::backing(number);
            if (!backing && path.filename() == path_.filename()) {
                throw RamDiskError(RamDiskError::ImageStateUnknown{});
            }
            if (backing && backing->device == device_ && backing->file == inode_) {
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
    const auto folder = openStoreFolder(path.parent_path());
    if (!folder || fstatvfs(folder.get(), &status) != 0) {
        throw SystemCallError("look at", path.parent_path());
    }
    return {std::uint64_t{status.f_bavail} * status.f_frsize};
}

} // namespace ramdisk
