#include "RamDiskInfrastructure/Unix/FileManagerFolderMaker.h"

#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskInfrastructure/Commands/FileDescriptor.h"

#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>

namespace ramdisk {

namespace {

constexpr int folderFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

RamDiskError notCreated(const std::string& folder, int code) {
    return RamDiskError::Case(RamDiskError::FolderNotCreated{folder, std::generic_category().message(code)});
}

} // namespace

void FileManagerFolderMaker::make(const std::string& relativePath, const std::filesystem::path& volume) {
    const std::filesystem::path path(relativePath);
    FileDescriptor parent(::open(volume.c_str(), folderFlags));
    if (parent.get() < 0) {
        throw notCreated(relativePath, errno);
    }
    for (const auto& component : path) {
        if (component == ".." || component == "/") {
            throw notCreated(relativePath, EINVAL);
        }
        if (component.empty() || component == ".") {
            continue;
        }
        if (::mkdirat(parent.get(), component.c_str(), S_IRWXU | S_IRWXG | S_IRWXO) != 0 && errno != EEXIST) {
            throw notCreated(relativePath, errno);
        }
        FileDescriptor folder(::openat(parent.get(), component.c_str(), folderFlags | O_NOFOLLOW));
        if (folder.get() < 0) {
            throw notCreated(relativePath, errno);
        }
        parent = std::move(folder);
    }
}

} // namespace ramdisk
