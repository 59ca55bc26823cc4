#include "RamDiskInfrastructure/Redirects/SymlinkFolderRedirector.h"

#include "RamDiskInfrastructure/Commands/RequireSuccess.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/Redirects/FolderCopies.h"
#include "RamDiskInfrastructure/Redirects/FolderOnDisk.h"
#include "RamDiskInfrastructure/Redirects/GitExclusion.h"
#include "RamDiskInfrastructure/Redirects/MadeFolders.h"
#include "RamDiskInfrastructure/Redirects/MovableFolder.h"
#include "RamDiskInfrastructure/Redirects/NameExchange.h"
#include "RamDiskInfrastructure/Redirects/StrayOriginals.h"
#include "RamDiskInfrastructure/Redirects/SymlinkUndo.h"
#include "RamDiskInfrastructure/Stores/FlushToDisk.h"

#include <cerrno>
#include <stdexcept>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace ramdisk {

SymlinkFolderRedirector::SymlinkFolderRedirector(std::filesystem::path home,
                                                 std::vector<std::filesystem::path> reserved,
                                                 StepObserver observer, NameExchange exchange)
    : home_(std::move(home)),
      reserved_(std::move(reserved)),
      observer_(std::move(observer)),
      exchange_(exchange) {}

int SymlinkFolderRedirector::exchange(const OpenedFolder& folder, const std::string& one,
                                      const std::string& other) const {
    return exchange_ == NameExchange::never ? ENOTSUP : exchangeNames(folder.descriptor, one, other);
}

void SymlinkFolderRedirector::makeLink(const OpenedFolder& folder, const std::string& name,
                                       const std::filesystem::path& target) const {
    if (symlinkat(target.c_str(), folder.descriptor.get(), name.c_str()) != 0) {
        throw SystemCallError("make a link in", folder.path);
    }
    const auto owner = privateAccessOfOwner(home_);
    if (geteuid() == 0 && owner.owner != 0
        && fchownat(folder.descriptor.get(), name.c_str(), owner.owner, owner.group, AT_SYMLINK_NOFOLLOW)
               != 0) {
        throw SystemCallError("set the owner of a link in", folder.path);
    }
}

RedirectRestoreState SymlinkFolderRedirector::apply(const Source& source,
                                                    const std::filesystem::path& mountPoint,
                                                    const FolderRedirecting::Record& record) const {
    const auto shown = source.shown();
    const auto name = source.folder.filename().string();
    const auto temporary = SymlinkUndo::temporaryName(source.redirect);
    auto folder = openInHome(home_, source.folder.parent_path());
    requireApart(folder.path / folder.missing / name, mountPoint, reserved_, shown);
    const auto original = requireMovable(folder, name, shown);
    requireOwnersFolder(home_, folder, shown);

    tell(observer_, "make the folder on the disk");
    makeFolderOnDisk(mountPoint, source.nameOnDisk,
                     original ? accessOf(*original) : privateAccessOfOwner(home_));
    const auto backupName = original ? freeNameIn(folder, name, originalEnding) : "";
    const auto backup = original ? std::optional(folder.path / backupName) : std::nullopt;
    const auto link = folderOnDisk(mountPoint, source.nameOnDisk);
    const auto place = original ? std::nullopt : std::optional(folder.path / folder.missing / name);
    const auto inode = original ? std::optional<std::uint64_t>(original->st_ino) : std::nullopt;
    record({RedirectRestoreState::MovedFolder{backup, place, inode}});
    const RedirectRestoreState linked{
        RedirectRestoreState::LinkedFolder{backup, link.string(), place, inode}};

    if (!folder.missing.empty()) {
        MadeFolders(home_, source.redirect, observer_).make(folder);
        folder = openInHome(home_, source.folder.parent_path());
    }
    GitExclusion(home_, source.redirect, observer_).add(folder, name);
    tell(observer_, "make the link");
    makeLink(folder, temporary, link);
    if (original) {
        tell(observer_, "exchange the folder and the link");
        const int error = exchange(folder, temporary, name);
        if (error == 0) {
            tell(observer_, "rename the original");
            requireSuccess(renameToFreeName(folder.descriptor, temporary, backupName), "rename",
                           folder.path / name);
        } else if (isExchangeMissing(error)) {
            tell(observer_, "move the original aside");
            requireSuccess(renameToFreeName(folder.descriptor, name, backupName), "rename",
                           folder.path / name);
            record(linked);
            tell(observer_, "put the link in its place");
            requireSuccess(renameToFreeName(folder.descriptor, temporary, name), "put a link at",
                           folder.path / name);
        } else {
            throw SystemCallError("put a link at", folder.path / name, error);
        }
    } else {
        record(linked);
        tell(observer_, "put the link in its place");
        requireSuccess(renameToFreeName(folder.descriptor, temporary, name), "put a link at",
                       folder.path / name);
    }
    // What the list says next must not reach the disk before these names do.
    requireSuccess(flushToDisk(folder.descriptor), "flush the folder", folder.path);
    return linked;
}

std::vector<SymlinkFolderRedirector::Standing>
SymlinkFolderRedirector::standings(const Source& source, const Recorded& recorded,
                                   std::string& obstacle) const {
    std::vector<std::filesystem::path> wanted;
    const auto name = source.folder.filename().string();
    if (const auto& known = recorded.backup ? recorded.backup : recorded.place) {
        const auto relative =
            (known->parent_path() / name).lexically_relative(std::filesystem::canonical(home_));
        // A home folder that was itself moved since then holds the record's place no more.
        if (!relative.empty() && *relative.begin() != "..") {
            wanted.push_back(relative);
        }
    }
    if (wanted.empty() || wanted.front() != source.folder) {
        wanted.push_back(source.folder);
    }
    std::vector<Standing> found;
    for (auto& relative : wanted) {
        try {
            found.push_back({openInHome(home_, relative.parent_path()), relative, name});
        } catch (const LeadsOutOfHome& error) {
            obstacle = error.what();
        }
    }
    return found;
}

std::optional<std::string> SymlinkFolderRedirector::undo(const Source& source,
                                                         const Recorded& recorded) const {
    const auto shown = source.shown();
    const auto isOurs = [&](const std::string& text) {
        return recorded.link ? text == *recorded.link
                             : isFolderOnDisk(text, source.nameOnDisk)
                                   || isFolderOnDisk(text, source.folder.filename().string());
    };
    std::string obstacle;
    std::optional<std::string> notice;
    bool isFound = false;
    for (const auto& standing : standings(source, recorded, obstacle)) {
        if (standing.folder.missing.empty()) {
            requireOwnersFolder(home_, standing.folder, shown);
            FolderCopies::removeUnfinished(standing.folder, source.redirect);
        }
        if (!isFound && standing.folder.missing.empty()) {
            const SymlinkUndo::Names names{.shown = shown,
                                           .folder = standing.name,
                                           .temporary = SymlinkUndo::temporaryName(source.redirect),
                                           .backup = recorded.backup
                                                         ? std::optional(recorded.backup->filename().string())
                                                         : std::nullopt,
                                           .inode = recorded.inode};
            const SymlinkUndo work(standing.folder, names, isOurs, exchange_, observer_);
            if (work.findsAnything()) {
                isFound = true;
                notice = work.run();
                requireSuccess(flushToDisk(standing.folder.descriptor), "flush the folder",
                               standing.folder.path);
            } else {
                // The undo before this one may have been killed when all that was left was the record.
                isFound = recorded.backup && work.isUndone();
            }
        }
        if (standing.folder.missing.empty()) {
            GitExclusion(home_, source.redirect, observer_).remove(standing.folder);
        }
        if (!recorded.backup) {
            MadeFolders(home_, source.redirect, observer_).remove(standing.relative);
        }
    }
    if (recorded.backup && !isFound) {
        throw OriginalNotFound(SymlinkUndo::notFound(shown, *recorded.backup, obstacle));
    }
    return notice;
}

bool SymlinkFolderRedirector::isInForce(const Source& source, const std::filesystem::path& mountPoint) const {
    const auto folder = openInHome(home_, source.folder.parent_path());
    return folder.missing.empty() && existsOnDisk(mountPoint, source.nameOnDisk)
           && linkIn(folder, source.folder.filename().string())
                  == folderOnDisk(mountPoint, source.nameOnDisk).string();
}

} // namespace ramdisk
