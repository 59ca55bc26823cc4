#include "RamDiskInfrastructure/MacTools/VolumeContents.h"

#include "RamDiskCore/Values/ASCII.h"
#include "RamDiskCore/Values/Text.h"
#include "RamDiskCore/Values/UUID.h"
#include "RamDiskInfrastructure/Archive/FileIdentity.h"
#include "RamDiskInfrastructure/Commands/FileDescriptor.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/MacTools/FolderWalk.h"
#include "RamDiskInfrastructure/MacTools/ImageManifest.h"
#include "RamDiskInfrastructure/MacTools/VolumeCopy.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace ramdisk {

namespace {

constexpr std::string_view probePrefix = ".ramdisk-probe-";
constexpr std::array<std::string_view, 8> systemItems{
    ".fseventsd",      ".Spotlight-V100",         ".Trashes",
    ".TemporaryItems", ".DocumentRevisions-V100", ".HFS+ Private Directory Data\r",
    ".journal",        ".journal_info_block"};

/// The member's name is the system's own affair.
template <typename Status>
timespec changeTime(const Status& status) {
    if constexpr (requires { status.st_ctimespec; }) {
        return status.st_ctimespec;
    } else {
        return status.st_ctim;
    }
}

std::string probeName() {
    return std::string(probePrefix) + UUID::random().text();
}

bool isThere(const std::filesystem::path& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0;
}

bool sameContent(const std::filesystem::path& left, const std::filesystem::path& right) {
    std::ifstream first(left, std::ios::binary);
    std::ifstream second(right, std::ios::binary);
    std::vector<char> one(1 << 20);
    std::vector<char> other(one.size());
    while (first && second) {
        first.read(one.data(), static_cast<std::streamsize>(one.size()));
        second.read(other.data(), static_cast<std::streamsize>(other.size()));
        if (first.gcount() != second.gcount()
            || !std::equal(one.begin(), one.begin() + first.gcount(), other.begin())) {
            return false;
        }
    }
    return first.eof() && second.eof();
}

bool sameItem(const std::filesystem::path& left, const struct stat& leftStatus,
              const std::filesystem::path& right, const struct stat& rightStatus) {
    if ((leftStatus.st_mode & S_IFMT) != (rightStatus.st_mode & S_IFMT)) {
        return false;
    }
    if (S_ISLNK(leftStatus.st_mode)) {
        return std::filesystem::read_symlink(left) == std::filesystem::read_symlink(right);
    }
    return !S_ISREG(leftStatus.st_mode)
           || (leftStatus.st_size == rightStatus.st_size && sameContent(left, right));
}

/// Whether folders of these names cannot be made beside each other in `volume`.
bool areMerged(const std::filesystem::path& volume, const std::vector<std::string>& names) {
    const auto probe = volume / probeName();
    if (::mkdir(probe.c_str(), S_IRWXU) != 0) {
        throw SystemCallError("make the folder", probe);
    }
    bool isMerged = false;
    for (const auto& name : names) {
        if (::mkdir((probe / name).c_str(), S_IRWXU) != 0) {
            isMerged = isMerged || errno == EEXIST;
        }
    }
    std::error_code ignored;
    std::filesystem::remove_all(probe, ignored);
    return isMerged;
}

std::map<std::filesystem::path, struct stat> itemsOf(const std::filesystem::path& root) {
    std::map<std::filesystem::path, struct stat> items;
    walkVolume(root, [&items](const std::filesystem::path& item, const struct stat& status) {
        if (isCopied(status)) {
            items.emplace(item, status);
        }
        return true;
    });
    return items;
}

} // namespace

void walkVolume(const std::filesystem::path& root, const FolderVisitor& visitor) {
    walkFolder(root, [&visitor](const std::filesystem::path& item, const struct stat& status) {
        const auto name = item.string();
        const bool isOfTheSystem =
            name.starts_with(probePrefix) || name == ImageManifest::fileName
            || std::find(systemItems.begin(), systemItems.end(), name) != systemItems.end();
        return !isOfTheSystem && visitor(item, status);
    });
}

bool isCopied(const struct stat& status) {
    return S_ISDIR(status.st_mode) || S_ISREG(status.st_mode) || S_ISLNK(status.st_mode)
           || S_ISFIFO(status.st_mode);
}

VolumeContents::Status VolumeContents::status() const {
    Status items;
    walkVolume(root_, [&items](const std::filesystem::path& item, const struct stat& status) {
        const auto changed = changeTime(status);
        items[item] = {std::chrono::sys_time<std::chrono::nanoseconds>(
                           std::chrono::seconds(changed.tv_sec) + std::chrono::nanoseconds(changed.tv_nsec)),
                       S_ISDIR(status.st_mode)};
        return true;
    });
    return items;
}

void VolumeContents::copyFrom(const VolumeContents& source, CommandRunning& runner,
                              const ProgressObserver& observer) const {
    VolumeCopy(source.root_, root_, runner, observer).perform();
}

void VolumeContents::removeAll() const {
    std::vector<std::filesystem::path> items;
    walkVolume(root_, [&items](const std::filesystem::path& item, const struct stat& /*status*/) {
        items.push_back(item);
        return false;
    });
    for (const auto& item : items) {
        std::filesystem::remove_all(root_ / item);
    }
}

std::optional<std::filesystem::path> VolumeContents::firstDifference(const VolumeContents& other) const {
    const auto items = itemsOf(root_);
    const auto others = itemsOf(other.root_);
    for (const auto& [item, status] : items) {
        const auto found = others.find(item);
        if (found == others.end() || !sameItem(root_ / item, status, other.root_ / item, found->second)) {
            return item;
        }
    }
    for (const auto& [item, status] : others) {
        if (!items.contains(item)) {
            return item;
        }
    }
    return std::nullopt;
}

bool VolumeContents::mergesNames() const {
    const auto name = probeName();
    const auto probe = root_ / name;
    const FileDescriptor made(
        ::open(probe.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (made) {
        const bool isMerged = isThere(root_ / lowerCased(name));
        ::unlink(probe.c_str());
        return isMerged;
    }
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator(root_, ignored)) {
        const auto present = entry.path().filename().string();
        if (lowerCased(present) != present) {
            return isThere(root_ / lowerCased(present));
        }
    }
    return false;
}

bool VolumeContents::hasNamesMergedOn(const VolumeContents& target) const {
    // Names that people would take for one another are more than any file system merges: a few are tried out.
    std::map<std::filesystem::path, std::map<std::string, std::vector<std::string>>> folders;
    walkVolume(root_, [&folders](const std::filesystem::path& item, const struct stat& /*status*/) {
        const auto name = item.filename().string();
        folders[item.parent_path()][foldedName(name)].push_back(name);
        return true;
    });
    for (const auto& [folder, groups] : folders) {
        for (const auto& [folded, names] : groups) {
            if (names.size() > 1 && areMerged(target.root_, names)) {
                return true;
            }
        }
    }
    return false;
}

} // namespace ramdisk
