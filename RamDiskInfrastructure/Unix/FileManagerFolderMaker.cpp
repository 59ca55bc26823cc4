#include "RamDiskInfrastructure/Unix/FileManagerFolderMaker.h"

#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskInfrastructure/Commands/FileDescriptor.h"

#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ramdisk {

namespace {

constexpr int folderFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

RamDiskError notCreated(const std::string& folder, int code) {
    return RamDiskError::Case(RamDiskError::FolderNotCreated{folder, std::generic_category().message(code)});
}

/// What root makes on a user's disk is the user's, who could not write into it otherwise.
bool giveToOwnerOf(const FileDescriptor& volume, const FileDescriptor& made) {
    struct stat around {};
    struct stat own {};
    if (::fstat(volume.get(), &around) != 0 || ::fstat(made.get(), &own) != 0) {
        return false;
    }
    return around.st_uid == own.st_uid || ::geteuid() != 0
           || ::fchown(made.get(), around.st_uid, around.st_gid) == 0;
}

} // namespace

void FileManagerFolderMaker::make(const std::string& relativePath, const std::filesystem::path& volume) {
    const std::filesystem::path path(relativePath);
    const FileDescriptor root(::open(volume.c_str(), folderFlags));
    FileDescriptor parent(::openat(root.get(), ".", folderFlags));
    if (!root || !parent) {
        throw notCreated(relativePath, errno);
    }
    for (const auto& component : path) {
        if (component == ".." || component == "/") {
            throw notCreated(relativePath, EINVAL);
        }
        if (component.empty() || component == ".") {
            continue;
        }
        const bool isNew = ::mkdirat(parent.get(), component.c_str(), S_IRWXU | S_IRWXG | S_IRWXO) == 0;
        if (!isNew && errno != EEXIST) {
            throw notCreated(relativePath, errno);
        }
        FileDescriptor folder(::openat(parent.get(), component.c_str(), folderFlags | O_NOFOLLOW));
        if (!folder || (isNew && !giveToOwnerOf(root, folder))) {
            throw notCreated(relativePath, errno);
        }
        parent = std::move(folder);
    }
}

} // namespace ramdisk
