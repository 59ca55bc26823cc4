#include "RamDiskInfrastructure/MacTools/PrivateMounts.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskCore/Values/Text.h"
#include "RamDiskInfrastructure/Stores/StoreFolder.h"

#include <algorithm>
#include <cerrno>
#include <string>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ramdisk {

namespace {

constexpr int mostClashes = 1000;
/// Leaves room for a number within the 255 bytes of a file name.
constexpr std::size_t longestFolderName = 250;

[[noreturn]] void failWith(int code, const char* action, const std::filesystem::path& path) {
    throw std::system_error(code, std::generic_category(), action + path.string());
}

bool lock(const FileDescriptor& directory, int operation) {
    int status = 0;
    do {
        status = ::flock(directory.get(), operation);
    } while (status != 0 && errno == EINTR);
    return status == 0;
}

/// A single path component that neither hides nor climbs.
std::string folderName(std::string_view volumeName) {
    std::string name(prefixOfWholeCharacters(replacingControls(trimmed(volumeName), "_"), longestFolderName));
    std::replace(name.begin(), name.end(), '/', ':');
    const auto visible = name.find_first_not_of('.');
    return visible == std::string::npos ? "RAMDisk" : name.substr(visible);
}

} // namespace

PrivateMounts::MountPoint::MountPoint(std::filesystem::path path, FileDescriptor directoryLock)
    : path_(std::move(path)),
      lock_(std::move(directoryLock)) {}

PrivateMounts::MountPoint::MountPoint(MountPoint&& other) noexcept
    : path_(std::move(other.path_)),
      lock_(std::move(other.lock_)),
      isKept_(std::exchange(other.isKept_, true)) {}

PrivateMounts::MountPoint::~MountPoint() {
    if (!isKept_) {
        ::rmdir(path_.c_str());
    }
}

PrivateMounts::PrivateMounts(std::filesystem::path directory, CloseDevice closeDevice)
    : directory_(std::move(directory)),
      closeDevice_(std::move(closeDevice)) {}

bool PrivateMounts::contains(const std::filesystem::path& mountPoint) const {
    const auto folder = decomposed(standardized(directory_)) + "/";
    const auto path = decomposed(standardized(mountPoint));
    // The tools resolve links in the paths that they list, such as one to the home folder.
    std::error_code ignored;
    return path.starts_with(folder)
           || std::filesystem::equivalent(std::filesystem::path(path).parent_path(), directory_, ignored);
}

PrivateMounts::MountPoint PrivateMounts::makeMountPoint(std::string_view volumeName) const {
    makeFolders(directory_);
    removeEmptyMountPoints();
    auto directory = openFolder(AT_FDCWD, directory_.c_str());
    if (directory.get() < 0 || ::fchmod(directory.get(), S_IRWXU) != 0 || !lock(directory, LOCK_SH)) {
        failWith(errno, "Could not prepare the folder ", directory_);
    }
    const auto name = folderName(volumeName);
    for (int clash = 0; clash < mostClashes; ++clash) {
        const auto candidate = clash == 0 ? name : name + " " + std::to_string(clash);
        if (::mkdirat(directory.get(), candidate.c_str(), S_IRWXU) == 0) {
            return {directory_ / candidate, std::move(directory)};
        }
        if (errno != EEXIST) {
            failWith(errno, "Could not make the folder ", directory_ / candidate);
        }
    }
    failWith(EEXIST, "Could not make the folder ", directory_ / name);
}

void PrivateMounts::removeEmptyMountPoints() const noexcept {
    try {
        const auto directory = openFolder(AT_FDCWD, directory_.c_str());
        if (directory.get() < 0 || !lock(directory, LOCK_EX | LOCK_NB)) {
            return;
        }
        std::error_code ignored;
        for (const auto& entry : std::filesystem::directory_iterator(directory_, ignored)) {
            // Fails for a folder in use and for anything that is not an empty folder, which is all that is
            // meant.
            ::unlinkat(directory.get(), entry.path().filename().c_str(), AT_REMOVEDIR);
        }
    } catch (const std::exception&) {
        // A folder that stays is only untidy.
        traceCaught("mounts", "empty mount points stay");
    }
}

} // namespace ramdisk
