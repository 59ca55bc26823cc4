#include "RamDiskInfrastructure/Linux/SavedContents/OpenImage.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/Linux/SavedContents/ImageLock.h"
#include "RamDiskInfrastructure/Linux/Volumes/LoopVolumeRoot.h"

#include <fmt/format.h>

#include <chrono>
#include <thread>

#include <fcntl.h>
#include <linux/fs.h>
#include <linux/loop.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace ramdisk {

namespace {

constexpr const char* savedFolder = "saved";
constexpr const char* contentsFolder = "contents";
constexpr const char* manifestFile = "manifest";
constexpr const char* aboutFile = "about";
/// What is shown of the loop device to those who list them.
constexpr const char* loopTag = "ramdisk-saved";
/// So much that is allocated and not used is worth the time to give it back.
constexpr auto muchRoom = ByteCount::of(64, ByteCount::Unit::mebibyte);
constexpr auto longestRelease = std::chrono::seconds(2);

MountRequest mountRequest(const LoopDevice& loop, LoopAccess access) {
    MountRequest request{"ext4", loop.path().string(), {}, MountRequest::Programs::refuse};
    if (access == LoopAccess::readOnly) {
        request.access = MountRequest::Access::readOnly;
    } else {
        // An image that is being written counts only after all of it was flushed at the end, so that nothing
        // before needs an order or a barrier.
        request.options = {
            {"nobarrier", ""}, {"noauto_da_alloc", ""}, {"data", "writeback"}, {"commit", "300"}};
    }
    return request;
}

LoopDevice attachLoop(const ImageFile& file, LoopAccess access) {
    try {
        return LoopDevice::attach(file.descriptor(), loopTag, {}, access);
    } catch (const SystemCallError& error) {
        if (error.isLackOfRights() || error.code().value() == ENOENT) {
            throw RamDiskError(RamDiskError::ContentsTransferFailed{
                fmt::format("keeping files needs the right to use loop devices: {}.", error.what())});
        }
        throw;
    }
}

DetachedMount mountOutOfSight(const LoopDevice& loop, LoopAccess access) {
    DetachedMount mount(mountRequest(loop, access), MountInterface::descriptors);
    if (!mount.root()) {
        throw SystemCallError("mount an image out of sight", ENOSYS);
    }
    return mount;
}

} // namespace

OpenImage::OpenImage(ImageFile file, unsigned loop, DetachedMount mount, FileDescriptor saved,
                     ExtSuperblock superblock, std::filesystem::path sys)
    : file_(std::move(file)),
      loop_(loop),
      mount_(std::move(mount)),
      saved_(std::move(saved)),
      superblock_(std::move(superblock)),
      sys_(std::move(sys)) {}

OpenImage OpenImage::open(ImageFile file, LoopAccess access, const VolumeProtection& protection,
                          const LinuxHost& host) {
    file.requireClosed(host.sys);
    auto loop = attachLoop(file, access);
    return mountOn(std::move(file), std::move(loop), access, protection, host);
}

OpenImage OpenImage::checkAndOpen(ImageFile file, const VolumeProtection& protection, const LinuxHost& host,
                                  CommandRunning& runner) {
    file.requireClosed(host.sys);
    auto loop = attachLoop(file, LoopAccess::writeThrough);
    // Of a file system that was closed well the check would look at no more than its head, at the price of a
    // program's start and several flushes.
    const auto superblock = ExtSuperblock::read(file.descriptor());
    if (!(superblock && superblock->isClean) && !checkImage(loop, runner)) {
        throw RamDiskError(RamDiskError::ImageUnreadable{});
    }
    return mountOn(std::move(file), std::move(loop), LoopAccess::readWrite, protection, host);
}

OpenImage OpenImage::mountOn(ImageFile file, LoopDevice loop, LoopAccess access,
                             const VolumeProtection& protection, const LinuxHost& host) {
    auto superblock = ExtSuperblock::read(file.descriptor());
    if (!superblock || superblock->size > file.size()) {
        throw RamDiskError(RamDiskError::ImageUnreadable{});
    }
    std::optional<DetachedMount> mount;
    try {
        mount = mountOutOfSight(loop, access);
    } catch (const SystemCallError& error) {
        if (error.isLackOfRights()) {
            throw RamDiskError(RamDiskError::ContentsTransferFailed{
                fmt::format("keeping files needs the right to mount: {}.", error.what())});
        }
        throw RamDiskError(RamDiskError::ImageUnreadable{error.what()});
    }
    auto saved = openFolder(mount->root().get(), savedFolder);
    if (!saved) {
        throw RamDiskError(RamDiskError::ImageUnreadable{});
    }
    unlockSavedFolder(mount->root(), saved, protection);
    OpenImage image(std::move(file), loop.number(), std::move(*mount), std::move(saved),
                    std::move(*superblock), host.sys);
    image.openContents();
    return image;
}

OpenImage OpenImage::make(ImageFile file, const ImageGeometry& geometry, const std::string& diskName,
                          const VolumeProtection& protection, const LinuxHost& host, CommandRunning& runner) {
    auto loop = attachLoop(file, LoopAccess::writeThrough);
    layImage(loop, geometry, diskName, protection, runner);
    auto superblock = ExtSuperblock::read(file.descriptor());
    if (!superblock) {
        throw SystemCallError("read what was laid into", file.path(), EIO);
    }
    auto mount = mountOutOfSight(loop, LoopAccess::readWrite);
    const LoopVolumeRoot root(mount.root());
    root.keepBackClusters(host.sys, 0);
    root.concealMountPoint();
    auto saved = makeSavedFolder(mount.root(), savedFolder, protection, host);
    if (mkdirat(saved.get(), contentsFolder, 0700) != 0) {
        throw SystemCallError("make a folder in", file.path());
    }
    OpenImage image(std::move(file), loop.number(), std::move(mount), std::move(saved),
                    std::move(*superblock), host.sys);
    image.openContents();
    return image;
}

void OpenImage::readDirectly() const noexcept {
    const FileDescriptor device(::open(LoopDevice::pathOf(loop_).c_str(), O_RDONLY | O_CLOEXEC));
    if (!device || ioctl(device.get(), LOOP_SET_DIRECT_IO, 1UL) != 0) {
        traceRefused("images", "LOOP_SET_DIRECT_IO", "the image is read through the page cache");
    }
}

void OpenImage::openContents() {
    contents_ = openFolder(saved_.get(), contentsFolder);
    if (!contents_) {
        throw RamDiskError(RamDiskError::ImageUnreadable{});
    }
}

ByteCount OpenImage::used() const {
    struct statvfs status {};
    if (fstatvfs(contents_.get(), &status) != 0) {
        throw SystemCallError("look into", file_.path());
    }
    return {std::uint64_t{status.f_blocks - status.f_bfree} * status.f_frsize};
}

std::string OpenImage::about() const {
    const FileDescriptor file(
        openat(saved_.get(), aboutFile, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    std::string text(4096, '\0');
    const auto length = file ? pread(file.get(), text.data(), text.size(), 0) : 0;
    text.resize(static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
    return text;
}

std::optional<TreeManifest> OpenImage::writtenManifest() const {
    const FileDescriptor file(
        openat(saved_.get(), manifestFile, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    return file ? TreeManifest::read(file) : std::nullopt;
}

bool OpenImage::isAsWritten() const {
    return about().starts_with(superblock_.seal + "\n");
}

std::optional<TreeManifest> OpenImage::manifest() const {
    return isAsWritten() ? writtenManifest() : std::nullopt;
}

std::optional<ImageOrigin> OpenImage::origin() const {
    // The seal, the capacity, and the name with whatever it holds.
    const auto text = about();
    const auto first = text.find('\n');
    const auto second = first == std::string::npos ? first : text.find('\n', first + 1);
    if (second == std::string::npos) {
        return std::nullopt;
    }
    return ImageOrigin{text.substr(second + 1), {std::strtoull(text.c_str() + first + 1, nullptr, 10)}};
}

void OpenImage::describe(const TreeManifest& manifest, const ImageOrigin& origin) {
    // That of this mount, which the kernel wrote when it began.
    const auto superblock = ExtSuperblock::read(file_.descriptor());
    if (!superblock) {
        throw SystemCallError("read the head of", file_.path(), EIO);
    }
    constexpr int flags = O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    const FileDescriptor file(openat(saved_.get(), manifestFile, flags, 0600));
    if (!file) {
        throw SystemCallError("write down the files in", file_.path());
    }
    manifest.write(file);
    const auto text = fmt::format("{}\n{}\n{}", superblock->seal, origin.capacity.bytes, origin.name);
    const FileDescriptor about(openat(saved_.get(), aboutFile, flags, 0600));
    if (!about || write(about.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        throw SystemCallError("write down the disk in", file_.path());
    }
    superblock_ = *superblock;
}

void OpenImage::undescribe() {
    for (const char* name : {aboutFile, manifestFile}) {
        if (unlinkat(saved_.get(), name, 0) != 0 && errno != ENOENT) {
            throw SystemCallError("begin to change", file_.path());
        }
    }
}

void OpenImage::flush() {
    if (syncfs(contents_.get()) != 0) {
        throw SystemCallError("write to", file_.path());
    }
    if (file_.allocated().bytes > used().bytes + used().bytes / 4 + muchRoom.bytes) {
        fstrim_range range{};
        range.len = ~std::uint64_t{0};
        // Without it the image is only larger than it needs to be.
        if (ioctl(contents_.get(), FITRIM, &range) != 0) {
            traceRefused("images", "FITRIM", "the image stays larger than it needs to be");
        }
    }
}

bool OpenImage::close() {
    contents_.reset();
    saved_.reset();
    mount_.reset();
    const auto isHeld = [this] {
        try {
            const auto loops = file_.loops(sys_);
            return std::find(loops.begin(), loops.end(), loop_) != loops.end();
        } catch (const RamDiskError&) {
            traceCaught("images", "the image counts as open");
            return true;
        }
    };
    const auto deadline = std::chrono::steady_clock::now() + longestRelease;
    while (isHeld()) {
        if (std::chrono::steady_clock::now() > deadline) {
            trace("images", "/dev/loop{} is not released in time; {} stays open", loop_,
                  file_.path().native());
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

} // namespace ramdisk
