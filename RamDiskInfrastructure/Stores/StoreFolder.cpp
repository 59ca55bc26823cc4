#include "RamDiskInfrastructure/Stores/StoreFolder.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"

#include <fmt/format.h>

#include <optional>
#include <stdexcept>

#include <sys/stat.h>

namespace ramdisk {

namespace {

namespace fs = std::filesystem;

FileDescriptor openFollowing(int parent, const char* name) {
    return FileDescriptor(openat(parent, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

/// One step of root's way. A link counts only where nobody but root could have put it.
FileDescriptor step(const FileDescriptor& parent, const fs::path& name, const fs::path& path) {
    auto folder = openFolder(parent.get(), name.c_str());
    const int error = errno;
    struct stat link {};
    struct stat around {};
    if (folder || fstatat(parent.get(), name.c_str(), &link, AT_SYMLINK_NOFOLLOW) != 0
        || !S_ISLNK(link.st_mode)) {
        errno = error;
        return folder;
    }
    if (link.st_uid != 0 || fstat(parent.get(), &around) != 0 || around.st_uid != 0) {
        throw std::runtime_error(fmt::format(
            "“{}” is a link that another user can change, so root does not follow it.", path.string()));
    }
    return openFollowing(parent.get(), name.c_str());
}

FileDescriptor makeAndOpen(const FileDescriptor& parent, const fs::path& name, mode_t mode) {
    if (mkdirat(parent.get(), name.c_str(), mode) != 0) {
        return errno == EEXIST ? openFolder(parent.get(), name.c_str()) : FileDescriptor();
    }
    auto made = openFolder(parent.get(), name.c_str());
    if (made) {
        giveToOwnerOf(parent, made);
    }
    return made;
}

/// Goes to the folder from the root folder, or from the working folder. Makes what is missing if there is a
/// mode for it.
FileDescriptor walk(const fs::path& folder, std::optional<mode_t> missing) {
    auto current = openFollowing(AT_FDCWD, folder.is_absolute() ? "/" : ".");
    fs::path path = folder.root_path();
    for (const auto& name : folder.relative_path()) {
        if (!current || name.empty() || name == ".") {
            continue;
        }
        path /= name;
        auto next = step(current, name, path);
        if (!next && errno == ENOENT && missing) {
            next = makeAndOpen(current, name, *missing);
        }
        current = std::move(next);
    }
    return current;
}

void makeAsUser(const fs::path& folder, mode_t mode) {
    if (folder.empty() || mkdir(folder.c_str(), mode) == 0) {
        return;
    }
    if (errno == ENOENT && folder.has_parent_path() && folder.parent_path() != folder) {
        makeAsUser(folder.parent_path(), mode);
        makeAsUser(folder, mode);
        return;
    }
    const int error = errno;
    struct stat status {};
    if (error != EEXIST || stat(folder.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
        throw SystemCallError("make the folder", folder, error);
    }
}

} // namespace

FileDescriptor openStoreFolder(const fs::path& folder) {
    return geteuid() == 0 ? walk(folder, std::nullopt)
                          : openFollowing(AT_FDCWD, folder.empty() ? "." : folder.c_str());
}

void makeFolders(const fs::path& folder, mode_t mode) {
    if (geteuid() != 0) {
        makeAsUser(folder, mode);
    } else if (!walk(folder, mode)) {
        throw SystemCallError("make the folder", folder);
    }
}

void giveToOwnerOf(const FileDescriptor& folder, const FileDescriptor& made) noexcept {
    struct stat status {};
    if (geteuid() == 0 && fstat(folder.get(), &status) == 0 && status.st_uid != 0) {
        // The file is of use to root in any case.
        if (fchown(made.get(), status.st_uid, status.st_gid) != 0) {
            traceRefused("stores", "handing a file to its folder's owner", "it stays root's");
        }
    }
}

} // namespace ramdisk
