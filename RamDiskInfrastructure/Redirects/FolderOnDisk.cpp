#include "RamDiskInfrastructure/Redirects/FolderOnDisk.h"

#include "RamDiskInfrastructure/Commands/FileDescriptor.h"
#include "RamDiskInfrastructure/Commands/RequireSuccess.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/Redirects/NameExchange.h"

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
/// Of a folder that is being removed.
const std::string freedPrefix = ".ramdisk-freed-";
constexpr mode_t commonMode = 0755;
constexpr mode_t allModes = 07777;
constexpr mode_t othersModes = 0077;

FileDescriptor openCommon(const std::filesystem::path& mountPoint) {
    const FileDescriptor root(open(mountPoint.c_str(), folderFlags));
    return root ? openFolder(root.get(), commonFolder) : FileDescriptor();
}

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

FolderAccess accessOf(const struct stat& status) {
    return {static_cast<mode_t>(status.st_mode & allModes), status.st_uid, status.st_gid};
}

std::filesystem::path folderOnDisk(const std::filesystem::path& mountPoint, const std::string& name) {
    return mountPoint / commonFolder / name;
}

bool isFolderOnDisk(const std::filesystem::path& path, const std::string& name) {
    return path.is_absolute() && path.filename() == name && path.parent_path().filename() == commonFolder;
}

bool existsOnDisk(const std::filesystem::path& mountPoint, const std::string& name) {
    return static_cast<bool>(openOnDisk(mountPoint, name));
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
    struct stat status {};
    const bool isThere = fstatat(common.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
    if (isThere && geteuid() == 0 && status.st_uid != access.owner) {
        // Root would hand one user's files to another who has a folder of the same name.
        throw std::runtime_error("The disk has the folder “" + path.string() + "” of another user already.");
    }
    give(makeIn(common, name, path), access, path);
}

FileDescriptor openOnDisk(const std::filesystem::path& mountPoint, const std::string& name) {
    const auto common = openCommon(mountPoint);
    return common ? openFolder(common.get(), name.c_str()) : FileDescriptor();
}

bool removeFolderIn(const FileDescriptor& parent, const std::string& name,
                    const std::filesystem::path& path) {
    const auto folder = openFolder(parent.get(), name.c_str());
    struct stat status {};
    if (!folder || fstat(folder.get(), &status) != 0) {
        return false;
    }
    empty(folder, status.st_dev, path);
    if (unlinkat(parent.get(), name.c_str(), AT_REMOVEDIR) != 0) {
        throw SystemCallError("remove", path);
    }
    return true;
}

bool removeFolderOnDisk(const std::filesystem::path& mountPoint, const std::string& name, uid_t owner) {
    const auto common = openCommon(mountPoint);
    if (!common) {
        return false;
    }
    const auto path = folderOnDisk(mountPoint, name);
    const auto hidden = freedPrefix + name;
    const auto mayRemove = [&](const std::string& folder) {
        struct stat status {};
        return fstatat(common.get(), folder.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0
               && S_ISDIR(status.st_mode) && (geteuid() != 0 || owner == 0 || status.st_uid == owner);
    };
    if (mayRemove(hidden)) {
        removeFolderIn(common, hidden, path);
    }
    if (!mayRemove(name)) {
        return false;
    }
    requireSuccess(renameToFreeName(common, name, hidden), "remove", path);
    return removeFolderIn(common, hidden, path);
}

void removeEmptyFolderOnDisk(const std::filesystem::path& mountPoint, const std::string& name) noexcept {
    const FileDescriptor root(open(mountPoint.c_str(), folderFlags));
    const auto common = openFolder(root.get(), commonFolder);
    if (common) {
        unlinkat(common.get(), name.c_str(), AT_REMOVEDIR);
        unlinkat(root.get(), commonFolder, AT_REMOVEDIR);
    }
}

int renameFolderOnDisk(const std::filesystem::path& mountPoint, const std::string& from,
                       const std::string& to) noexcept {
    const auto common = openCommon(mountPoint);
    return common ? renameToFreeName(common, from, to) : ENOENT;
}

bool holdsFiles(const std::filesystem::path& folder) {
    std::error_code error;
    for (std::filesystem::recursive_directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
        if (entry->symlink_status(error).type() != std::filesystem::file_type::directory) {
            return true;
        }
    }
    // What cannot be looked into may hold anything.
    return error && error != std::errc::no_such_file_or_directory;
}

std::optional<std::filesystem::path> otherFileSystemIn(const std::filesystem::path& folder) {
    struct stat root {};
    if (stat(folder.c_str(), &root) != 0) {
        return std::nullopt;
    }
    std::error_code error;
    for (std::filesystem::recursive_directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
        struct stat status {};
        if (lstat(entry->path().c_str(), &status) == 0 && S_ISDIR(status.st_mode)
            && status.st_dev != root.st_dev) {
            return entry->path();
        }
    }
    return std::nullopt;
}

FolderAccess privateAccessOfOwner(const std::filesystem::path& home) {
    struct stat status {};
    if (stat(home.c_str(), &status) != 0) {
        throw SystemCallError("look at", home);
    }
    return {S_IRWXU, status.st_uid, status.st_gid};
}

} // namespace ramdisk
