#include "RamDiskInfrastructure/MacTools/VolumeCopy.h"

#include "RamDiskCore/Values/UUID.h"
#include "RamDiskInfrastructure/Archive/FileIdentity.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/MacTools/ToolPaths.h"

#include <array>
#include <cstdio>

#include <fcntl.h>
#include <unistd.h>

namespace ramdisk {

namespace {

/// Keeps a command line well below what the system takes.
constexpr std::size_t mostFilesAtOnce = 200;
constexpr mode_t permissions = 07777;

template <typename Status>
std::array<timespec, 2> accessAndModificationTimes(const Status& status) {
    if constexpr (requires { status.st_mtimespec; }) {
        return {status.st_atimespec, status.st_mtimespec};
    } else {
        return {status.st_atim, status.st_mtim};
    }
}

} // namespace

VolumeCopy::VolumeCopy(std::filesystem::path from, std::filesystem::path to, CommandRunning& runner,
                       const ProgressObserver& observer)
    : from_(std::move(from)),
      to_(std::move(to)),
      runner_(runner),
      observer_(observer) {}

void VolumeCopy::perform() {
    readSource();
    for (const auto& item : items_) {
        makeRoomFor(item);
        copy(item);
    }
    copyFiles();
    linkSecondNames();
}

void VolumeCopy::readSource() {
    walkVolume(from_, [this](const std::filesystem::path& item, const struct stat& status) {
        if (!isCopied(status)) {
            return false;
        }
        if (!item.has_parent_path()) {
            items_.push_back({item, status});
        }
        auto& top = items_.back();
        ++top.files;
        ++progress_.totalFiles;
        if (S_ISREG(status.st_mode)) {
            top.bytes += static_cast<std::uint64_t>(status.st_size);
            progress_.totalBytes += static_cast<std::uint64_t>(status.st_size);
            if (status.st_nlink > 1) {
                secondNames_[{status.st_dev, status.st_ino}].push_back(item);
            }
        }
        return true;
    });
}

void VolumeCopy::makeRoomFor(const Item& item) const {
    struct stat status {};
    const auto target = to_ / item.name;
    if (::lstat(target.c_str(), &status) == 0 && !(S_ISDIR(status.st_mode) && S_ISDIR(item.status.st_mode))) {
        std::filesystem::remove_all(target);
    }
}

void VolumeCopy::copy(const Item& item) {
    const auto target = to_ / item.name;
    if (S_ISREG(item.status.st_mode)) {
        files_.push_back(&item);
        if (files_.size() == mostFilesAtOnce) {
            copyFiles();
        }
        return;
    }
    if (S_ISDIR(item.status.st_mode)) {
        ditto({(from_ / item.name).string()}, target);
    } else if (S_ISLNK(item.status.st_mode)) {
        makeLink(item);
    } else if (::mkfifo(target.c_str(), item.status.st_mode & permissions) != 0) {
        throw SystemCallError("make the pipe", target);
    }
    report(item);
}

void VolumeCopy::copyFiles() {
    if (files_.empty()) {
        return;
    }
    std::vector<std::string> sources;
    for (const auto* file : files_) {
        sources.push_back((from_ / file->name).string());
    }
    ditto(std::move(sources), to_);
    for (const auto* file : files_) {
        report(*file);
    }
    files_.clear();
}

void VolumeCopy::makeLink(const Item& item) const {
    const auto target = to_ / item.name;
    std::filesystem::create_symlink(std::filesystem::read_symlink(from_ / item.name), target);
    const auto times = accessAndModificationTimes(item.status);
    // Only its owner and root can give a link away; its times are no reason to fail either.
    [[maybe_unused]] const int owned = ::lchown(target.c_str(), item.status.st_uid, item.status.st_gid);
    ::utimensat(AT_FDCWD, target.c_str(), times.data(), AT_SYMLINK_NOFOLLOW);
}

void VolumeCopy::linkSecondNames() const {
    for (const auto& [file, names] : secondNames_) {
        const auto first = to_ / names.front();
        for (const auto& name : names) {
            const auto target = to_ / name;
            if (FileIdentity::of(target) == FileIdentity::of(first)) {
                continue;
            }
            const auto linked = target.parent_path() / (".ramdisk-link-" + UUID::random().text());
            // Where the volume knows no second names, two files remain.
            if (::link(first.c_str(), linked.c_str()) == 0
                && std::rename(linked.c_str(), target.c_str()) != 0) {
                throw SystemCallError("replace", target);
            }
        }
    }
}

void VolumeCopy::ditto(std::vector<std::string> sources, const std::filesystem::path& target) {
    sources.push_back(target.string());
    runner_.runChecked({toolPaths::ditto, std::move(sources), std::nullopt, std::nullopt});
}

void VolumeCopy::report(const Item& item) {
    progress_.files += item.files;
    progress_.bytes += item.bytes;
    if (observer_) {
        observer_(progress_);
    }
}

} // namespace ramdisk
