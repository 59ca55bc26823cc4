#include "RamDiskInfrastructure/Linux/Records/MountFolders.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskCore/Values/Text.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/Stores/StoredFile.h"

#include <fmt/format.h>

#include <cstdio>

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace ramdisk {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t longestFileName = 255;
constexpr const char* folderMark = "user.com.tavrin.ramdisk.mountpoint";

/// The folder name for a volume name: the same, unless it is longer than a file name may be or would steer
/// the terminals in which it is shown.
std::string folderName(std::string_view volumeName, unsigned attempt) {
    const auto name = replacingControls(volumeName, "_");
    const auto suffix = attempt < 2 ? std::string() : fmt::format(" {}", attempt);
    const auto prefix = prefixOfWholeCharacters(name, longestFileName - suffix.size());
    // One character of many combining marks can alone be longer than a file name.
    return (prefix.empty() ? "RAMDisk" : std::string(prefix)) + suffix;
}

/// Marks the new folder, for the day after a power cut; where attributes are missing, that day has one folder
/// more. Then takes the right to write to it from everybody but root.
void markAndSeal(const fs::path& path, const FileDescriptor& folder) {
    static_cast<void>(lsetxattr(path.c_str(), folderMark, "1", 1, 0));
    // By the descriptor: whoever owns the parent folder may put a link there meanwhile.
    if (chmod(fmt::format("/proc/self/fd/{}", folder.get()).c_str(), 0500) != 0) {
        traceRefused("mounts", "sealing a mount point",
                     "programs can write to it before and after the mount");
    }
}

/// rmdir, also of a folder that an eject which was killed left immutable.
bool removeEmpty(const fs::path& path) {
    if (rmdir(path.c_str()) == 0) {
        return true;
    }
    if (errno != EPERM) {
        return false;
    }
    const auto folder = openFolder(AT_FDCWD, path.c_str());
    static_cast<void>(MountFolders::setImmutable(folder, MountFolders::Immutable::no));
    return rmdir(path.c_str()) == 0;
}

/// Gives a folder that is no longer empty another name in its parent.
std::optional<fs::path> moveAside(const fs::path& path) {
    const FileDescriptor folder(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    // Our mark, put there when it was made; what has none is nobody's to rename.
    if (!folder || fgetxattr(folder.get(), folderMark, nullptr, 0) < 0) {
        return std::nullopt;
    }
    const FileDescriptor parent(openat(folder.get(), "..", O_PATH | O_DIRECTORY | O_CLOEXEC));
    for (unsigned attempt = 1; parent; ++attempt) {
        const auto name = folderName(path.filename().string() + " (written after its eject)", attempt);
        if (renameat2(parent.get(), path.filename().c_str(), parent.get(), name.c_str(), RENAME_NOREPLACE)
            == 0) {
            static_cast<void>(fremovexattr(folder.get(), folderMark));
            return path.parent_path() / name;
        }
        if (errno != EEXIST) {
            break;
        }
    }
    return std::nullopt;
}

bool isOurLeftover(const fs::path& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == geteuid()
           && lgetxattr(path.c_str(), folderMark, nullptr, 0) >= 0;
}

} // namespace

std::vector<fs::path> MountFolders::parents(VolumeAccess access) const {
    if (access == VolumeAccess::onlyMe) {
        return {host_.privateMounts};
    }
    return host_.publicMounts;
}

fs::path MountFolders::preferred(std::string_view name, VolumeAccess access) const {
    return parents(access).front() / folderName(name, 1);
}

void MountFolders::makeParent(const fs::path& parent, VolumeAccess access) const {
    struct stat status {};
    if (!openStoreFolder(parent) || lstat(parent.c_str(), &status) != 0) {
        makeFolders(parent, access == VolumeAccess::onlyMe ? 0700 : 0755);
        if (lstat(parent.c_str(), &status) != 0) {
            throw SystemCallError("look at the folder", parent);
        }
    }
    if (access == VolumeAccess::onlyMe) {
        if (!S_ISDIR(status.st_mode) || (status.st_uid != geteuid() && status.st_uid != host_.owner)) {
            throw SystemCallError("keep private the folder", parent, EPERM);
        }
        if ((status.st_mode & 07777U) != 0700 && chmod(parent.c_str(), 0700) != 0) {
            throw SystemCallError("keep private the folder", parent);
        }
    }
}

MountFolders::Made MountFolders::make(std::string_view name, VolumeAccess access,
                                      const std::function<void(const fs::path&)>& announce,
                                      const std::function<bool(const fs::path&)>& isTaken) const {
    std::optional<SystemCallError> failure;
    for (const auto& parent : parents(access)) {
        try {
            makeParent(parent, access);
            for (unsigned attempt = 1;; ++attempt) {
                const auto path = parent / folderName(name, attempt);
                struct stat status {};
                if (lstat(path.c_str(), &status) == 0
                    && (!isOurLeftover(path) || isTaken(path) || !removeEmpty(path))) {
                    // Never announced: what a record names is removed if its maker dies.
                    continue;
                }
                announce(path);
                if (mkdir(path.c_str(), 0755) == 0) {
                    FileDescriptor folder(open(path.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
                    if (!folder) {
                        throw SystemCallError("open the folder", path);
                    }
                    markAndSeal(path, folder);
                    return {path, std::move(folder)};
                }
                if (errno != EEXIST) {
                    throw SystemCallError("make the folder", path);
                }
            }
        } catch (const SystemCallError& error) {
            traceCaught("mounts", "the next place for a mount point is tried");
            failure = error;
        }
    }
    throw *failure;
}

std::string MountFolders::nameFor(std::string_view name) {
    return folderName(name, 1);
}

bool MountFolders::setImmutable(const FileDescriptor& folder, Immutable wanted) noexcept {
    int flags = 0;
    if (!folder || fgetxattr(folder.get(), folderMark, nullptr, 0) < 0
        || ioctl(folder.get(), FS_IOC_GETFLAGS, &flags) != 0) {
        return false;
    }
    flags = wanted == Immutable::yes ? flags | FS_IMMUTABLE_FL : flags & ~FS_IMMUTABLE_FL;
    return ioctl(folder.get(), FS_IOC_SETFLAGS, &flags) == 0;
}

bool MountFolders::mayBeOurs(const fs::path& path) noexcept {
    return lgetxattr(path.c_str(), folderMark, nullptr, 0) >= 0 || errno == ENOTSUP;
}

std::optional<fs::path> MountFolders::remove(const fs::path& path) noexcept {
    if (removeEmpty(path)) {
        trace("mounts", "removed the empty folder {}", path.native());
        return std::nullopt;
    }
    const bool isInUse = errno == ENOTEMPTY || errno == EEXIST;
    if (errno != ENOENT) {
        traceRefused("mounts", "removing an old mount point", path.native() + " stays");
    }
    return isInUse ? moveAside(path) : std::nullopt;
}

} // namespace ramdisk
