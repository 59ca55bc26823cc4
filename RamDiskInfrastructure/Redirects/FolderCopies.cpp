#include "RamDiskInfrastructure/Redirects/FolderCopies.h"

#include "RamDiskInfrastructure/Commands/RequireSuccess.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/Redirects/FolderOnDisk.h"
#include "RamDiskInfrastructure/Redirects/MadeFolders.h"
#include "RamDiskInfrastructure/Redirects/MovableFolder.h"
#include "RamDiskInfrastructure/Redirects/NameExchange.h"
#include "RamDiskInfrastructure/Redirects/StrayOriginals.h"
#include "RamDiskInfrastructure/Stores/FlushToDisk.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <set>
#include <stdexcept>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace ramdisk {

namespace {

const std::string copyPrefix = ".ramdisk-copy-";

std::string hiddenName(const UUID& redirect) {
    return copyPrefix + redirect.text();
}

/// A path that leads to the open folder whatever is renamed, where the platform has one.
std::filesystem::path pathOf(const FileDescriptor& folder, const std::filesystem::path& path) {
    const auto byNumber = fmt::format("/proc/self/fd/{}", folder.get());
    return access(byNumber.c_str(), F_OK) == 0 ? std::filesystem::path(byNumber) : path;
}

/// What the files below the folder take on any file system, or a little less.
std::uint64_t leastSize(const std::filesystem::path& folder) {
    constexpr std::uint64_t blockSize = 512;
    std::uint64_t bytes = 0;
    std::set<ino_t> seen;
    std::error_code error;
    for (std::filesystem::recursive_directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
        struct stat status {};
        if (lstat(entry->path().c_str(), &status) == 0 && S_ISREG(status.st_mode)
            && (status.st_nlink == 1 || seen.insert(status.st_ino).second)) {
            bytes += std::min(static_cast<std::uint64_t>(status.st_blocks) * blockSize,
                              static_cast<std::uint64_t>(status.st_size));
        }
    }
    return bytes;
}

void requireRoom(const std::filesystem::path& folder, const std::filesystem::path& mountPoint,
                 const std::string& shown) {
    struct statvfs volume {};
    if (statvfs(mountPoint.c_str(), &volume) == 0
        && leastSize(folder) > static_cast<std::uint64_t>(volume.f_bavail) * volume.f_frsize) {
        throw std::runtime_error("The disk has not enough space for a copy of " + shown + ".");
    }
}

} // namespace

FolderCopies::FolderCopies(std::filesystem::path home, std::vector<std::filesystem::path> reserved,
                           std::shared_ptr<FolderCopying> copier, StepObserver observer)
    : home_(std::move(home)),
      reserved_(std::move(reserved)),
      copier_(std::move(copier)),
      observer_(std::move(observer)) {}

void FolderCopies::copy(const FileDescriptor& from, const std::filesystem::path& fromPath,
                        const FileDescriptor& to, const std::filesystem::path& toPath) const {
    tell(observer_, "copy the files");
    copier_->copy(pathOf(from, fromPath), pathOf(to, toPath));
    tell(observer_, "the files are copied");
}

void FolderCopies::toDisk(const Source& source, const std::filesystem::path& mountPoint) const {
    const auto shown = source.shown();
    const auto name = source.folder.filename().string();
    const auto parent = openInHome(home_, source.folder.parent_path());
    requireApart(parent.path / parent.missing / name, mountPoint, reserved_, shown);
    const auto original = requireMovable(parent, name, shown);
    requireOwnersFolder(home_, parent, shown);
    if (!original) {
        return;
    }
    if (holdsFiles(folderOnDisk(mountPoint, source.nameOnDisk))) {
        throw std::runtime_error(shown
                                 + " has files on the disk already, which stay. Add it without --copy.");
    }
    const auto folder = openFolder(parent.descriptor.get(), name.c_str());
    requireRoom(pathOf(folder, parent.path / name), mountPoint, shown);
    const auto hidden = copyPrefix + source.nameOnDisk;
    const auto owner = privateAccessOfOwner(home_).owner;
    removeFolderOnDisk(mountPoint, hidden, owner);
    try {
        makeFolderOnDisk(mountPoint, hidden, accessOf(*original));
        const auto target = openOnDisk(mountPoint, hidden);
        copy(folder, parent.path / name, target, folderOnDisk(mountPoint, hidden));
        removeEmptyFolderOnDisk(mountPoint, source.nameOnDisk);
        requireSuccess(renameFolderOnDisk(mountPoint, hidden, source.nameOnDisk), "rename",
                       folderOnDisk(mountPoint, source.nameOnDisk));
    } catch (...) {
        removeFolderOnDisk(mountPoint, hidden, owner);
        removeEmptyFolderOnDisk(mountPoint, hidden);
        throw;
    }
}

void FolderCopies::removeUnfinished(const OpenedFolder& parent, const UUID& redirect) {
    const auto hidden = hiddenName(redirect);
    removeFolderIn(parent.descriptor, hidden, parent.path / hidden);
}

void FolderCopies::copyHidden(const Source& source, const FileDescriptor& onDisk,
                              const std::filesystem::path& mountPoint, const OpenedFolder& parent) const {
    const auto hidden = hiddenName(source.redirect);
    const auto path = parent.path / hidden;
    removeUnfinished(parent, source.redirect);
    struct stat status {};
    if (mkdirat(parent.descriptor.get(), hidden.c_str(), S_IRWXU) != 0 || fstat(onDisk.get(), &status) != 0) {
        throw SystemCallError("make the folder", path);
    }
    const auto target = openFolder(parent.descriptor.get(), hidden.c_str());
    copy(onDisk, folderOnDisk(mountPoint, source.nameOnDisk), target, path);
    if ((geteuid() == 0 && fchown(target.get(), status.st_uid, status.st_gid) != 0)
        || fchmod(target.get(), accessOf(status).mode) != 0) {
        throw SystemCallError("set the access rights of", path);
    }
    // The files on the disk go when these have their name.
    requireSuccess(flushFileSystem(target), "flush", path);
}

std::optional<std::filesystem::path> FolderCopies::fromDisk(const Source& source,
                                                            const std::filesystem::path& mountPoint,
                                                            const FolderRedirecting::Record& record) const {
    const auto shown = source.shown();
    const auto name = source.folder.filename().string();
    const auto onDisk = openOnDisk(mountPoint, source.nameOnDisk);
    if (!onDisk) {
        // Nothing to keep, or a removal was killed when its files had their place.
        return std::nullopt;
    }
    auto parent = openInHome(home_, source.folder.parent_path());
    const auto original = requireMovable(parent, name, shown);
    requireOwnersFolder(home_, parent, shown);
    record({RedirectRestoreState::MovedFolder{std::nullopt, parent.path / parent.missing / name}});
    if (!parent.missing.empty()) {
        MadeFolders(home_, source.redirect, observer_).make(parent);
        parent = openInHome(home_, source.folder.parent_path());
    }
    copyHidden(source, onDisk, mountPoint, parent);
    std::optional<std::filesystem::path> backup;
    if (original) {
        const auto backupName = freeNameIn(parent, name, formerEnding);
        backup = parent.path / backupName;
        record({RedirectRestoreState::MovedFolder{backup, std::nullopt,
                                                  static_cast<std::uint64_t>(original->st_ino)}});
        tell(observer_, "move the original aside");
        requireSuccess(renameToFreeName(parent.descriptor, name, backupName), "rename", parent.path / name);
    }
    tell(observer_, "put the files in its place");
    requireSuccess(renameToFreeName(parent.descriptor, hiddenName(source.redirect), name), "rename",
                   parent.path / name);
    MadeFolders(home_, source.redirect, observer_).remove(source.folder.parent_path());
    requireSuccess(flushToDisk(parent.descriptor), "flush the folder", parent.path);
    return backup;
}

} // namespace ramdisk
