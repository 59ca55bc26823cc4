#include "RamDiskInfrastructure/Redirects/MovableFolder.h"

#include "RamDiskInfrastructure/Redirects/FolderOnDisk.h"

#include <stdexcept>

#include <unistd.h>

namespace ramdisk {

void requireApart(const std::filesystem::path& folder, const std::filesystem::path& mountPoint,
                  const std::vector<std::filesystem::path>& reserved, const std::string& shown) {
    const auto disk = std::filesystem::canonical(mountPoint);
    if (isInside(folder, disk) || isInside(disk, folder)) {
        throw std::runtime_error(shown + " and the disk lie in one another.");
    }
    for (const auto& one : reserved) {
        const auto real = std::filesystem::weakly_canonical(one);
        if (isInside(folder, real) || isInside(real, folder)) {
            throw std::runtime_error(shown + " holds files of Tavrin RamDisk itself, which have to stay.");
        }
    }
}

std::optional<struct stat> requireMovable(const OpenedFolder& parent, const std::string& name,
                                          const std::string& shown) {
    if (!parent.missing.empty()) {
        if (statusIn(parent, *parent.missing.begin())) {
            throw std::runtime_error("“" + (parent.path / *parent.missing.begin()).string()
                                     + "” is a link that leads nowhere.");
        }
        return std::nullopt;
    }
    auto status = statusIn(parent, name);
    if (status && S_ISLNK(status->st_mode)) {
        throw std::runtime_error(shown + " is a symbolic link. Name the folder that it leads to.");
    }
    if (status && !S_ISDIR(status->st_mode)) {
        throw std::runtime_error(shown + " is not a folder.");
    }
    struct stat above {};
    if (status && fstat(parent.descriptor.get(), &above) == 0 && above.st_dev != status->st_dev) {
        throw std::runtime_error(shown + " is where another file system is mounted, which cannot be moved.");
    }
    return status;
}

bool isOfHomeOwner(const std::filesystem::path& home, const FileDescriptor& folder) {
    struct stat status {};
    return fstat(folder.get(), &status) == 0 && status.st_uid == privateAccessOfOwner(home).owner;
}

void requireOwnersFolder(const std::filesystem::path& home, const OpenedFolder& parent,
                         const std::string& shown) {
    if (geteuid() == 0 && privateAccessOfOwner(home).owner != 0 && !isOfHomeOwner(home, parent.descriptor)) {
        throw std::runtime_error(shown
                                 + " lies in a folder that does not belong to the owner of the home "
                                   "folder.");
    }
}

} // namespace ramdisk
