#include "RamDiskInfrastructure/Trees/FolderCursor.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <string>

#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace ramdisk {

namespace {

constexpr std::size_t mostOpenFolders = 32;

} // namespace

FileDescriptor openItem(int folder, const char* name, int flags, mode_t mode) {
    static std::atomic<bool> hasOpenat2{true};
    flags |= O_NOFOLLOW | O_CLOEXEC;
    if (hasOpenat2.load(std::memory_order_relaxed)) {
        open_how how{};
        how.flags = static_cast<std::uint64_t>(flags);
        how.mode = mode;
        how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_XDEV;
        long result = -1;
        do {
            result = ::syscall(SYS_openat2, folder, name, &how, sizeof how);
        } while (result < 0 && (errno == EAGAIN || errno == EINTR));
        if (result >= 0 || errno != ENOSYS) {
            return FileDescriptor(static_cast<int>(result));
        }
        hasOpenat2 = false;
    }
    return FileDescriptor(::openat(folder, name, flags, mode));
}

FileDescriptor openForReading(int folder, const char* name, int moreFlags) {
    const int flags = O_RDONLY | O_NONBLOCK | moreFlags;
    auto opened = openItem(folder, name, flags | O_NOATIME);
    if (!opened && errno == EPERM) {
        // Only an owner may leave the time alone.
        opened = openItem(folder, name, flags);
    }
    return opened;
}

bool isGone(int error) {
    return error == ENOENT || error == ENOTDIR || error == ELOOP || error == ENXIO || error == ENODEV
           || error == ESTALE || error == EXDEV;
}

FolderCursor::FolderCursor(const FileDescriptor& root, const TreeManifest::Contents& tree)
    : root_(root),
      tree_(tree) {}

void FolderCursor::lead(std::uint32_t folder) {
    way_.clear();
    for (auto step = folder; step != 0; step = tree_.items[step].parent) {
        way_.push_back(step);
    }
    way_.push_back(0);
    std::reverse(way_.begin(), way_.end());
    std::size_t common = 0;
    while (common < std::min(way_.size(), levels_.size()) && levels_[common].folder == way_[common]) {
        ++common;
    }
    levels_.resize(common);
    for (; common < way_.size(); ++common) {
        levels_.push_back({way_[common], FileDescriptor()});
    }
}

int FolderCursor::open(std::uint32_t folder) {
    if (levels_.empty() || levels_.back().folder != folder) {
        lead(folder);
    }
    auto level = levels_.size() - 1;
    while (level > 0 && !levels_[level].descriptor) {
        --level;
    }
    if (!levels_[level].descriptor) {
        levels_[0].descriptor = openForReading(root_.get(), ".", O_DIRECTORY);
        if (!levels_[0].descriptor) {
            return -1;
        }
    }
    while (++level < levels_.size()) {
        const std::string name(tree_.name(levels_[level].folder));
        levels_[level].descriptor =
            openForReading(levels_[level - 1].descriptor.get(), name.c_str(), O_DIRECTORY);
        if (!levels_[level].descriptor) {
            return -1;
        }
        if (level > mostOpenFolders) {
            levels_[level - mostOpenFolders].descriptor.reset();
        }
    }
    return levels_.back().descriptor.get();
}

} // namespace ramdisk
