#include "RamDiskInfrastructure/Linux/Redirects/BindMounting.h"

#include "RamDiskCore/Ports/FolderRedirecting.h"
#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/Linux/Host/MountTable.h"
#include "RamDiskInfrastructure/Linux/Host/OpenFiles.h"
#include "RamDiskInfrastructure/Redirects/FolderOnDisk.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

#include <sys/mount.h>

namespace ramdisk {

namespace {

/// What the kernel adds to the path of a folder that was deleted while it is mounted.
constexpr std::string_view deletedEnding = "//deleted";

/// Whether more of a file system is mounted than folders of tools.
bool showsDisk(const MountTable& table, dev_t device) {
    return std::any_of(table.entries().begin(), table.entries().end(), [device](const MountEntry& entry) {
        const std::filesystem::path root(entry.root);
        return entry.device == device && !isFolderOnDisk(root, root.filename().string());
    });
}

std::string busyText(const std::filesystem::path& proc, const std::filesystem::path& place) {
    const auto names = describe(OpenFiles::find(proc, {FilesPlace::Folder{place}}).users);
    return fmt::format("“{}” is kept busy by {}.", place.string(),
                       names.empty() ? "open files" : fmt::format("{}", fmt::join(names, ", ")));
}

/// What is mounted in the folder would go with it, and only its own programs could reach it from then on.
void requireNothingInside(const std::filesystem::path& proc, const std::filesystem::path& place) {
    const auto table = MountTable::read(proc);
    const auto* const top = table.topmostAt(place);
    const auto* const inner = top == nullptr ? nullptr : table.on(*top);
    if (inner != nullptr) {
        throw FolderInUse(fmt::format("“{}” stays: {}", place.string(), mountedOnText(*inner)));
    }
}

} // namespace

bool BindMounting::isAllowed() const {
    return host_.mayMount && host_.firstRung() == HostRung::kernel;
}

void BindMounting::mount(const FileDescriptor& folder, const FileDescriptor& target,
                         const std::filesystem::path& place) {
    const FileDescriptor copy(
        open_tree(folder.get(), "", OPEN_TREE_CLONE | OPEN_TREE_CLOEXEC | AT_EMPTY_PATH));
    if (!copy && errno != ENOSYS) {
        throw SystemCallError("mount a folder at", place);
    }
    int result = 0;
    if (copy) {
        result =
            move_mount(copy.get(), "", target.get(), "", MOVE_MOUNT_F_EMPTY_PATH | MOVE_MOUNT_T_EMPTY_PATH);
    } else {
        traceRefused("mounts", "open_tree", "mount(2) is used");
        result = ::mount(fmt::format("/proc/self/fd/{}", folder.get()).c_str(),
                         fmt::format("/proc/self/fd/{}", target.get()).c_str(), nullptr, MS_BIND, nullptr);
    }
    if (result != 0) {
        throw SystemCallError("mount a folder at", place);
    }
}

std::vector<FolderMounting::Mounted> BindMounting::list() const {
    const auto table = MountTable::read(host_.proc);
    std::vector<Mounted> found;
    for (const auto& entry : table.entries()) {
        auto root = entry.root;
        if (root.ends_with(deletedEnding)) {
            root.resize(root.size() - deletedEnding.size());
        }
        if (root != "/") {
            const auto* const top = table.topmostAt(entry.mountPoint);
            found.push_back({entry.mountPoint, root, entry.device, top == nullptr || top->id != entry.id,
                             !showsDisk(table, entry.device)});
        }
    }
    return found;
}

std::optional<std::string> BindMounting::mountedIn(const std::filesystem::path& folder) const {
    const auto table = MountTable::read(host_.proc);
    const auto* const inner = table.below(std::filesystem::canonical(folder));
    return inner == nullptr ? std::nullopt : std::optional(mountedOnText(*inner));
}

void BindMounting::unmount(const FileDescriptor& parent, const std::filesystem::path& place, Force force) {
    // An open descriptor of the mount itself would keep it busy.
    const auto path = fmt::format("/proc/self/fd/{}/{}", parent.get(), place.filename().string());
    if (umount2(path.c_str(), UMOUNT_NOFOLLOW) == 0 || errno == EINVAL || errno == ENOENT) {
        return;
    }
    if (errno != EBUSY) {
        throw FolderInUse(SystemCallError("unmount", place).what());
    }
    requireNothingInside(host_.proc, place);
    if (force == Force::no) {
        throw FolderInUse(busyText(host_.proc, place));
    }
    if (umount2(path.c_str(), MNT_DETACH | UMOUNT_NOFOLLOW) != 0) {
        throw SystemCallError("unmount", place);
    }
}

} // namespace ramdisk
