#include "RamDiskInfrastructure/Redirects/MountedFolderRedirector.h"

#include "RamDiskInfrastructure/Commands/SameFile.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/Redirects/FolderOnDisk.h"
#include "RamDiskInfrastructure/Redirects/MadeFolders.h"
#include "RamDiskInfrastructure/Redirects/MovableFolder.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include <sys/stat.h>

namespace ramdisk {

namespace {

/// How often a folder may have been mounted over itself.
constexpr int mostLayers = 16;

} // namespace

MountedFolderRedirector::MountedFolderRedirector(std::filesystem::path home,
                                                 std::vector<std::filesystem::path> reserved,
                                                 std::shared_ptr<FolderMounting> mounting,
                                                 StepObserver observer)
    : home_(std::move(home)),
      reserved_(std::move(reserved)),
      mounting_(std::move(mounting)),
      observer_(std::move(observer)) {}

bool MountedFolderRedirector::isMount(const RedirectRestoreState& state) {
    const auto* const linked = std::get_if<RedirectRestoreState::LinkedFolder>(&state.value);
    return linked != nullptr && !linked->backup && linked->inode;
}

bool MountedFolderRedirector::suits(const Source& source) const {
    if (!mounting_ || !mounting_->isAllowed()) {
        return false;
    }
    const auto parent = openInHome(home_, source.folder.parent_path());
    const auto name = source.folder.filename().string();
    if (!isOfHomeOwner(home_, parent.descriptor)) {
        return false;
    }
    const auto folder = openFolder(parent.descriptor.get(), name.c_str());
    return !parent.missing.empty() || !folder || isOfHomeOwner(home_, folder);
}

RedirectRestoreState MountedFolderRedirector::apply(const Source& source,
                                                    const std::filesystem::path& mountPoint,
                                                    const FolderRedirecting::Record& record) const {
    const auto shown = source.shown();
    const auto name = source.folder.filename().string();
    // A list that was lost may have left it mounted.
    undo(source, {}, Force::no);
    auto parent = openInHome(home_, source.folder.parent_path());
    requireApart(parent.path / parent.missing / name, mountPoint, reserved_, shown);
    const auto original = requireMovable(parent, name, shown);

    tell(observer_, "make the folder on the disk");
    makeFolderOnDisk(mountPoint, source.nameOnDisk,
                     original ? accessOf(*original) : privateAccessOfOwner(home_));
    const auto place = parent.path / parent.missing / name;
    record({RedirectRestoreState::MovedFolder{std::nullopt, place}});
    if (!original) {
        MadeFolders(home_, source.redirect, observer_).make(openInHome(home_, source.folder));
        parent = openInHome(home_, source.folder.parent_path());
    }
    const auto target = openFolder(parent.descriptor.get(), name.c_str());
    struct stat status {};
    if (!target || fstat(target.get(), &status) != 0) {
        throw SystemCallError("open", place);
    }
    if (!isOfHomeOwner(home_, parent.descriptor) || !isOfHomeOwner(home_, target)
        || (original && status.st_ino != original->st_ino)) {
        throw std::runtime_error(shown + " was replaced in the meantime.");
    }
    const RedirectRestoreState mounted{
        RedirectRestoreState::LinkedFolder{std::nullopt, folderOnDisk(mountPoint, source.nameOnDisk).string(),
                                           place, static_cast<std::uint64_t>(status.st_ino)}};
    record(mounted);
    tell(observer_, "mount the folder");
    mounting_->mount(openOnDisk(mountPoint, source.nameOnDisk), target, place);
    tell(observer_, "the folder is mounted");
    return mounted;
}

std::vector<FolderMounting::Mounted> MountedFolderRedirector::mounts() const {
    if (!mounting_) {
        return {};
    }
    auto found = mounting_->list();
    std::error_code error;
    const auto home = std::filesystem::canonical(home_, error);
    std::erase_if(found, [&](const FolderMounting::Mounted& mount) {
        return error || mount.place == home || !isInside(mount.place, home)
               || !isFolderOnDisk(mount.root, mount.root.filename().string());
    });
    return found;
}

std::optional<FolderMounting::Mounted> MountedFolderRedirector::mountOf(const Source& source,
                                                                        const Recorded& recorded) const {
    auto found = mounts();
    std::erase_if(found, [&](const auto& mount) { return mount.root.filename() != source.nameOnDisk; });
    if (found.empty()) {
        return std::nullopt;
    }
    std::vector<std::filesystem::path> places{std::filesystem::canonical(home_)
                                              / realPlaceInHome(home_, source.folder)};
    if (recorded.place) {
        places.push_back(*recorded.place);
    }
    for (const auto& place : places) {
        // A covered one is told only when nothing can be taken away any more.
        const auto at = [&](const auto& mount) { return mount.place == place; };
        const auto top = std::find_if(found.begin(), found.end(),
                                      [&](const auto& mount) { return at(mount) && !mount.isCovered; });
        const auto any = top != found.end() ? top : std::find_if(found.begin(), found.end(), at);
        if (any != found.end()) {
            return *any;
        }
    }
    // A folder above it was renamed, and took the mount along.
    return recorded.place && found.size() == 1 ? std::optional(found.front()) : std::nullopt;
}

void MountedFolderRedirector::undo(const Source& source, const Recorded& recorded, Force force) const {
    for (int layer = 0; layer < mostLayers; ++layer) {
        const auto mount = mountOf(source, recorded);
        if (!mount) {
            return;
        }
        if (mount->isCovered) {
            throw FolderInUse("Something else is mounted over " + source.shown()
                              + ", which is kept on a disk. Unmount that first.");
        }
        const auto relative = mount->place.lexically_relative(std::filesystem::canonical(home_));
        const auto parent = openInHome(home_, relative.parent_path());
        requireOwnersFolder(home_, parent, source.shown());
        tell(observer_, "unmount the folder");
        mounting_->unmount(parent.descriptor, mount->place, force);
    }
    throw FolderInUse(source.shown() + " is kept on a disk by a mount that cannot be taken away from here.");
}

bool MountedFolderRedirector::isInForce(const Source& source, const std::filesystem::path& mountPoint) const {
    if (!mounting_) {
        return false;
    }
    const auto parent = openInHome(home_, source.folder.parent_path());
    const auto folder = parent.missing.empty()
                            ? openFolder(parent.descriptor.get(), source.folder.filename().c_str())
                            : FileDescriptor();
    const auto onDisk = openOnDisk(mountPoint, source.nameOnDisk);
    return folder && onDisk && isSameFile(folder, onDisk);
}

std::optional<std::string> MountedFolderRedirector::mountedIn(const std::filesystem::path& folder) const {
    if (mounting_) {
        return mounting_->mountedIn(folder);
    }
    const auto inner = otherFileSystemIn(folder);
    return inner ? std::optional("another volume is mounted on it, at “" + inner->string()
                                 + "”. Unmount that one first.")
                 : std::nullopt;
}

bool MountedFolderRedirector::holdsLastFiles(const Source& source, const Recorded& recorded) const {
    const auto mount = mountOf(source, recorded);
    return mount && mount->isDiskGone && !mount->isCovered && holdsFiles(mount->place);
}

bool MountedFolderRedirector::isCovered(const Source& source) const {
    const auto mount = mountOf(source, {});
    return mount && mount->isCovered;
}

} // namespace ramdisk
