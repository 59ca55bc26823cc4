#include "RamDiskInfrastructure/Redirects/MadeFolders.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskInfrastructure/Commands/RequireSuccess.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/Redirects/FolderOnDisk.h"
#include "RamDiskInfrastructure/Redirects/NameExchange.h"

#include <cerrno>
#include <utility>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

namespace ramdisk {

namespace {

/// Whether the folder holds this one name and nothing else.
bool holdsOnly(const FileDescriptor& folder, const std::string& name) {
    FileDescriptor own(openat(folder.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    DIR* const entries = own ? fdopendir(own.get()) : nullptr;
    if (entries == nullptr) {
        return false;
    }
    static_cast<void>(own.release());
    bool only = true;
    while (const auto* const entry = readdir(entries)) {
        const std::string found = entry->d_name;
        only = only && (found == "." || found == ".." || found == name);
    }
    closedir(entries);
    return only;
}

} // namespace

MadeFolders::MadeFolders(std::filesystem::path home, const UUID& redirect, StepObserver observer)
    : home_(std::move(home)),
      marker_(".ramdisk-made-" + redirect.text()),
      hidden_(".ramdisk-hidden-" + redirect.text()),
      observer_(std::move(observer)) {}

void MadeFolders::make(const OpenedFolder& existing) const {
    if (existing.missing.empty()) {
        return;
    }
    const auto access = privateAccessOfOwner(home_);
    const auto path = existing.path / existing.missing;
    std::string name = hidden_;
    FileDescriptor parent(openat(existing.descriptor.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    for (auto component = existing.missing.begin(); component != existing.missing.end();) {
        tell(observer_, "make a folder above");
        if (mkdirat(parent.get(), name.c_str(), access.mode) != 0) {
            throw SystemCallError("make the folder", path);
        }
        parent = openFolder(parent.get(), name.c_str());
        const FileDescriptor mark(openat(parent.get(), marker_.c_str(),
                                         O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                                         S_IRUSR | S_IWUSR));
        if (!mark
            || (geteuid() == 0
                && (fchown(parent.get(), access.owner, access.group) != 0
                    || fchown(mark.get(), access.owner, access.group) != 0))) {
            throw SystemCallError("make the folder", path);
        }
        name = ++component == existing.missing.end() ? "" : component->string();
    }
    tell(observer_, "show the folders above");
    const auto first = existing.missing.begin()->string();
    requireSuccess(renameToFreeName(existing.descriptor, hidden_, first), "make the folder",
                   existing.path / first);
}

void MadeFolders::removeUnfinished(const OpenedFolder& parent, const std::filesystem::path& below,
                                   const std::string& finishedName) const {
    // From the inside out, along the only way that `make` goes.
    std::vector<FileDescriptor> folders;
    std::vector<std::string> names;
    folders.push_back(openFolder(parent.descriptor.get(), hidden_.c_str()));
    if (!folders.back()) {
        return;
    }
    tell(observer_, "remove the folders above");
    for (const auto& component : below) {
        auto next = openFolder(folders.back().get(), component.c_str());
        if (!next) {
            break;
        }
        folders.push_back(std::move(next));
        names.push_back(component.string());
    }
    for (;;) {
        unlinkat(folders.back().get(), marker_.c_str(), 0);
        folders.pop_back();
        if (folders.empty()) {
            break;
        }
        unlinkat(folders.back().get(), names.back().c_str(), AT_REMOVEDIR);
        names.pop_back();
    }
    if (unlinkat(parent.descriptor.get(), hidden_.c_str(), AT_REMOVEDIR) != 0) {
        // Somebody else put something in: it is a folder of the user's from now on.
        requireSuccess(renameToFreeName(parent.descriptor, hidden_, finishedName), "put back the folder",
                       parent.path / finishedName);
    }
}

void MadeFolders::removeFinished(const OpenedFolder& parent, const std::string& name) const {
    const auto folder = openFolder(parent.descriptor.get(), name.c_str());
    struct stat status {};
    if (!folder || fstatat(folder.get(), marker_.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0
        || !S_ISREG(status.st_mode)) {
        return;
    }
    tell(observer_, "hide a folder above");
    if (holdsOnly(folder, marker_)) {
        if (const int error = renameToFreeName(parent.descriptor, name, hidden_); error != 0) {
            traceRefused("redirects", "removing a folder that was made", "it stays", error);
        }
    } else {
        unlinkat(folder.get(), marker_.c_str(), 0);
    }
}

void MadeFolders::remove(const std::filesystem::path& relative) const {
    std::filesystem::path below;
    for (auto parent = relative; !parent.empty();) {
        const auto name = parent.filename();
        parent = parent.parent_path();
        const auto opened = openInHome(home_, parent);
        if (opened.missing.empty()) {
            removeFinished(opened, name);
            removeUnfinished(opened, below, name);
        }
        below = below.empty() ? name : name / below;
    }
}

} // namespace ramdisk
