#include "RamDiskInfrastructure/Redirects/FolderOnDisk.h"

#include "RamDiskInfrastructure/Commands/FileDescriptor.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"

#include <cerrno>
#include <memory>
#include <stdexcept>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ramdisk {

namespace {

/// No blank in it: too many scripts do not quote TMPDIR.
constexpr const char* commonFolder = "Redirected";
constexpr int folderFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
constexpr mode_t commonMode = 0755;
constexpr mode_t allModes = 07777;
constexpr mode_t othersModes = 0077;

/// The folder of this name, made where it is missing.
FileDescriptor makeIn(const FileDescriptor& parent, const std::string& name,
                      const std::filesystem::path& path) {
    // Closed to everybody else until its owner and mode are right.
    if (mkdirat(parent.get(), name.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
        throw SystemCallError("make the folder", path);
    }
    auto folder = openFolder(parent.get(), name.c_str());
    if (!folder) {
        throw SystemCallError("use the folder", path);
    }
    return folder;
}

/// File systems without owners and modes refuse to change them; what counts is what holds in the end.
void give(const FileDescriptor& folder, const FolderAccess& access, const std::filesystem::path& path) {
    struct stat status {};
    if (fstat(folder.get(), &status) != 0) {
        throw SystemCallError("look at", path);
    }
    if ((status.st_uid != access.owner || status.st_gid != access.group)
        && fchown(folder.get(), access.owner, access.group) != 0 && errno != EPERM) {
        throw SystemCallError("set the owner of", path);
    }
    if (fchmod(folder.get(), access.mode & allModes) != 0 && errno != EPERM) {
        throw SystemCallError("set the access rights of", path);
    }
    if (fstat(folder.get(), &status) != 0 || (status.st_mode & othersModes & ~access.mode) != 0) {
        throw std::runtime_error("The disk cannot keep others out of the folder, as they are now.");
    }
}

/// Removes what the folder holds, and follows neither links nor mounts.
void empty(const FileDescriptor& folder, dev_t device, const std::filesystem::path& path) {
    FileDescriptor own(openat(folder.get(), ".", folderFlags));
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(own ? fdopendir(own.get()) : nullptr, &closedir);
    if (!entries) {
        throw SystemCallError("empty", path);
    }
    static_cast<void>(own.release());
    while (const auto* const entry = readdir(entries.get())) {
        const std::string name = entry->d_name;
        struct stat status {};
        if (name == "." || name == ".."
            || fstatat(folder.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
            continue;
        }
        if (S_ISDIR(status.st_mode) && status.st_dev == device) {
            if (const auto inner = openFolder(folder.get(), name.c_str())) {
                // Caches like to bar writing in what they hold, even to their owner.
                static_cast<void>(fchmod(inner.get(), S_IRWXU));
                empty(inner, device, path / name);
            }
        }
        if (unlinkat(folder.get(), name.c_str(), S_ISDIR(status.st_mode) ? AT_REMOVEDIR : 0) != 0
            && errno != ENOENT) {
            throw SystemCallError("remove", path / name);
        }
    }
}

} // namespace

std::filesystem::path folderOnDisk(const std::filesystem::path& mountPoint, const std::string& name) {
    return mountPoint / commonFolder / name;
}

bool isFolderOnDisk(const std::filesystem::path& path, const std::string& name) {
    return path.is_absolute() && path.filename() == name && path.parent_path().filename() == commonFolder;
}

bool existsOnDisk(const std::filesystem::path& mountPoint, const std::string& name) {
    const FileDescriptor root(open(mountPoint.c_str(), folderFlags));
    const auto common = root ? openFolder(root.get(), commonFolder) : FileDescriptor();
    return common && openFolder(common.get(), name.c_str());
}

void makeFolderOnDisk(const std::filesystem::path& mountPoint, const std::string& name,
                      const FolderAccess& access) {
    const FileDescriptor root(open(mountPoint.c_str(), folderFlags));
    if (!root) {
        throw SystemCallError("open", mountPoint);
    }
    const auto path = folderOnDisk(mountPoint, name);
    const auto common = makeIn(root, commonFolder, path.parent_path());
    give(common, {commonMode, access.owner, access.group}, path.parent_path());
    give(makeIn(common, name, path), access, path);
}

bool removeFolderOnDisk(const std::filesystem::path& mountPoint, const std::string& name) {
    const FileDescriptor root(open(mountPoint.c_str(), folderFlags));
    const auto common = root ? openFolder(root.get(), commonFolder) : FileDescriptor();
    const auto folder = common ? openFolder(common.get(), name.c_str()) : FileDescriptor();
    struct stat status {};
    if (!folder || fstat(folder.get(), &status) != 0) {
        return false;
    }
    const auto path = folderOnDisk(mountPoint, name);
    empty(folder, status.st_dev, path);
    if (unlinkat(common.get(), name.c_str(), AT_REMOVEDIR) != 0) {
        throw SystemCallError("remove", path);
    }
    return true;
}

FolderAccess privateAccessOfOwner(const std::filesystem::path& home) {
    struct stat status {};
    if (stat(home.c_str(), &status) != 0) {
        throw SystemCallError("look at", home);
    }
    return {S_IRWXU, status.st_uid, status.st_gid};
}

} // namespace ramdisk
