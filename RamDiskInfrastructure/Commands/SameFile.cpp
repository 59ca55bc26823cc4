#include "RamDiskInfrastructure/Commands/SameFile.h"

#include <sys/stat.h>

namespace ramdisk {

namespace {

bool isSame(const struct stat& one, const struct stat& other) {
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

} // namespace

bool isSameFile(const FileDescriptor& one, const FileDescriptor& other) noexcept {
    struct stat left {};
    struct stat right {};
    return fstat(one.get(), &left) == 0 && fstat(other.get(), &right) == 0 && isSame(left, right);
}

bool isSameFile(const FileDescriptor& file, const std::filesystem::path& path) noexcept {
    struct stat held {};
    struct stat named {};
    return fstat(file.get(), &held) == 0 && lstat(path.c_str(), &named) == 0 && isSame(held, named);
}

} // namespace ramdisk
