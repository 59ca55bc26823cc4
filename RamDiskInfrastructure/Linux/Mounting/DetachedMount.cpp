#include "RamDiskInfrastructure/Linux/Mounting/DetachedMount.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"

#include <fmt/format.h>

#include <fcntl.h>
#include <sys/mount.h>
#include <unistd.h>

namespace ramdisk {

std::string MountRequest::optionText() const {
    std::string text;
    for (const auto& [key, value] : options) {
        text += (text.empty() ? "" : ",") + key + (value.empty() ? "" : "=" + value);
    }
    return text;
}

DetachedMount::DetachedMount(MountRequest request, MountInterface interface) : request_(std::move(request)) {
    if (interface == MountInterface::descriptors) {
        openContext();
    }
}

void DetachedMount::openContext() {
    const FileDescriptor context(fsopen(request_.fileSystem.c_str(), FSOPEN_CLOEXEC));
    if (!context) {
        if (errno == ENOSYS) {
            traceRefused("mounts", "fsopen", "mount(2) is used, which shows the volume at once");
            return;
        }
        throw SystemCallError(fmt::format("mount a {}", request_.fileSystem));
    }
    const auto set = [&](const std::string& key, const std::string& value) {
        const int result = value.empty()
                               ? fsconfig(context.get(), FSCONFIG_SET_FLAG, key.c_str(), nullptr, 0)
                               : fsconfig(context.get(), FSCONFIG_SET_STRING, key.c_str(), value.c_str(), 0);
        if (result != 0) {
            throw SystemCallError(fmt::format("set the option {} of a {}", key, request_.fileSystem));
        }
    };
    set("source", request_.source);
    for (const auto& [key, value] : request_.options) {
        set(key, value);
    }
    const bool isReadOnly = request_.access == MountRequest::Access::readOnly;
    if (isReadOnly) {
        set("ro", "");
    }
    if (fsconfig(context.get(), FSCONFIG_CMD_CREATE, nullptr, nullptr, 0) != 0) {
        throw SystemCallError(fmt::format("make a {}", request_.fileSystem));
    }
    unsigned attributes = MOUNT_ATTR_NOSUID | MOUNT_ATTR_NODEV;
    if (isReadOnly) {
        attributes |= MOUNT_ATTR_RDONLY;
    }
    if (request_.programs == MountRequest::Programs::refuse) {
        attributes |= MOUNT_ATTR_NOEXEC;
    }
    mount_.reset(fsmount(context.get(), FSMOUNT_CLOEXEC, attributes));
    if (!mount_) {
        throw SystemCallError(fmt::format("mount a {}", request_.fileSystem));
    }
    root_.reset(openat(mount_.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!root_) {
        throw SystemCallError(fmt::format("open a new {}", request_.fileSystem));
    }
}

void DetachedMount::narrowTo(FileDescriptor folder) {
    FileDescriptor part(open_tree(folder.get(), "", OPEN_TREE_CLONE | OPEN_TREE_CLOEXEC | AT_EMPTY_PATH));
    if (!part) {
        throw SystemCallError(fmt::format("mount a folder of a {}", request_.fileSystem));
    }
    FileDescriptor root(openat(part.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!root) {
        throw SystemCallError(fmt::format("open a folder of a {}", request_.fileSystem));
    }
    mount_ = std::move(part);
    root_ = std::move(root);
}

void DetachedMount::attach(const std::filesystem::path& path, const FileDescriptor& folder) {
    int result = 0;
    if (mount_) {
        result =
            move_mount(mount_.get(), "", folder.get(), "", MOVE_MOUNT_F_EMPTY_PATH | MOVE_MOUNT_T_EMPTY_PATH);
    } else {
        const auto target = fmt::format("/proc/self/fd/{}", folder.get());
        unsigned long flags = MS_NOSUID | MS_NODEV;
        if (request_.access == MountRequest::Access::readOnly) {
            flags |= MS_RDONLY;
        }
        if (request_.programs == MountRequest::Programs::refuse) {
            flags |= MS_NOEXEC;
        }
        result = mount(request_.source.c_str(), target.c_str(), request_.fileSystem.c_str(), flags,
                       request_.optionText().c_str());
    }
    if (result != 0) {
        throw SystemCallError("mount", path);
    }
}

} // namespace ramdisk
