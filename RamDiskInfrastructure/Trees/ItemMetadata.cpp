#include "RamDiskInfrastructure/Trees/ItemMetadata.h"

#include "RamDiskCore/Values/VolumeMark.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"

#include <algorithm>
#include <optional>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace ramdisk {

namespace {

std::string descriptorPath(int descriptor) {
    return "/proc/self/fd/" + std::to_string(descriptor);
}

/// What `call(buffer, size)` gives, whatever its length; absent with errno set when it fails.
template <typename Call>
std::optional<std::string> wholeOf(Call call) {
    std::string buffer(512, '\0');
    while (true) {
        const auto length = call(buffer.data(), buffer.size());
        if (length >= 0) {
            buffer.resize(static_cast<std::size_t>(length));
            return buffer;
        }
        if (errno != ERANGE || buffer.size() >= (1U << 20U)) {
            return std::nullopt;
        }
        buffer.resize(buffer.size() * 16);
    }
}

/// Attributes that only the privileged may set, or that name what another machine decides.
bool isPrivileged(const std::string& attribute) {
    return attribute.starts_with("security.") || attribute.starts_with("trusted.");
}

std::vector<std::string> split(const std::string& list) {
    std::vector<std::string> names;
    for (std::size_t start = 0; start < list.size();) {
        const auto end = std::min(list.find('\0', start), list.size());
        names.push_back(list.substr(start, end - start));
        start = end + 1;
    }
    return names;
}

bool isMark(const std::string& attribute) {
    return attribute == std::string("user.") + VolumeMark::attribute;
}

/// The calls for one item, whichever kind of descriptor it has.
class OpenItem {
public:
    OpenItem(int descriptor, ItemType type)
        : descriptor_(descriptor),
          byPath_(type != ItemType::file && type != ItemType::folder),
          path_(byPath_ ? descriptorPath(descriptor) : std::string()) {}

    [[nodiscard]] int descriptor() const noexcept { return descriptor_; }
    [[nodiscard]] std::optional<std::string> attributeNames() const {
        return wholeOf([&](char* buffer, std::size_t size) {
            return byPath_ ? ::listxattr(path_.c_str(), buffer, size)
                           : ::flistxattr(descriptor_, buffer, size);
        });
    }
    [[nodiscard]] std::optional<std::string> attribute(const std::string& name) const {
        return wholeOf([&](char* buffer, std::size_t size) {
            return byPath_ ? ::getxattr(path_.c_str(), name.c_str(), buffer, size)
                           : ::fgetxattr(descriptor_, name.c_str(), buffer, size);
        });
    }
    [[nodiscard]] int set(const ItemAttribute& wanted) const {
        return byPath_ ? ::setxattr(path_.c_str(), wanted.name.c_str(), wanted.value.data(),
                                    wanted.value.size(), 0)
                       : ::fsetxattr(descriptor_, wanted.name.c_str(), wanted.value.data(),
                                     wanted.value.size(), 0);
    }
    [[nodiscard]] int remove(const std::string& name) const {
        return byPath_ ? ::removexattr(path_.c_str(), name.c_str())
                       : ::fremovexattr(descriptor_, name.c_str());
    }
    [[nodiscard]] int changeOwner(uid_t user, gid_t group) const {
        return ::fchownat(descriptor_, "", user, group, AT_EMPTY_PATH | AT_SYMLINK_NOFOLLOW);
    }
    [[nodiscard]] int changeMode(mode_t mode) const {
        return byPath_ ? ::chmod(path_.c_str(), mode) : ::fchmod(descriptor_, mode);
    }
    [[nodiscard]] int changeTimes(const timespec times[2]) const {
        // The descriptor's own path leads to the item itself, also when that is a link.
        return byPath_ ? ::utimensat(AT_FDCWD, path_.c_str(), times, 0) : ::futimens(descriptor_, times);
    }

private:
    int descriptor_;
    bool byPath_;
    std::string path_;
};

/// Whether the volume of the open item still has room for any attribute.
bool hasRoom(int item) {
    constexpr std::uint64_t blocksForOne = 256;
    constexpr std::uint64_t inodesForOne = 16;
    struct statvfs volume {};
    return ::fstatvfs(item, &volume) == 0 && volume.f_bavail > blocksForOne && volume.f_favail > inodesForOne;
}

/// Whether setting an attribute failed because this item has no room for it.
bool isLeftOut(int item, const ItemAttributes& wanted, AttributeRoom room) {
    return room == AttributeRoom::whereThereIsRoom && (errno == ENOSPC || errno == E2BIG || errno == ERANGE)
           && !fitIntoBlock(wanted) && hasRoom(item);
}

void setAttributes(const OpenItem& target, const TreeManifest::Contents& tree, std::uint32_t item,
                   AttributeRoom room) {
    const auto& wanted = tree.attributes(item);
    for (const auto& attribute : wanted) {
        if (target.attribute(attribute.name) == attribute.value || target.set(attribute) == 0
            || (isPrivileged(attribute.name) && (errno == EPERM || errno == EACCES || errno == ENOTSUP))) {
            continue;
        }
        if (!isLeftOut(target.descriptor(), wanted, room)) {
            throw SystemCallError("set the attribute " + attribute.name + " of", tree.path(item));
        }
        // What the item had under this name is not what the manifest lists.
        static_cast<void>(target.remove(attribute.name));
    }
}

void applyAttributes(const OpenItem& target, const TreeManifest::Contents& tree, std::uint32_t item,
                     AttributeRoom room) {
    const auto& wanted = tree.attributes(item);
    const auto list = target.attributeNames();
    if (!list && errno != ENOTSUP) {
        throw SystemCallError("list the attributes of", tree.path(item));
    }
    for (const auto& name : list ? split(*list) : std::vector<std::string>()) {
        const bool stays = (item == 0 && isMark(name))
                           || std::any_of(wanted.begin(), wanted.end(),
                                          [&](const auto& attribute) { return attribute.name == name; });
        if (!stays && target.remove(name) != 0 && errno != ENODATA
            && !(isPrivileged(name) && (errno == EPERM || errno == EACCES || errno == ENOTSUP))) {
            throw SystemCallError("remove an attribute of", tree.path(item));
        }
    }
    setAttributes(target, tree, item, room);
}

/// All attributes that `list(buffer, size)` names, their values by `get(name, buffer, size)`.
template <typename List, typename Get>
ItemAttributes attributesBy(const TreeManifest::Contents& tree, std::uint32_t item, List list, Get get) {
    // Most items have none: then nothing is allocated.
    if (list(nullptr, 0) == 0) {
        return {};
    }
    const auto all = wholeOf(list);
    if (!all) {
        if (errno == ENOTSUP || errno == ENOENT) {
            return {};
        }
        if (errno == E2BIG) {
            return unlistedAttributes();
        }
        throw SystemCallError("list the attributes of", tree.path(item));
    }
    ItemAttributes attributes;
    for (const auto& attribute : split(*all)) {
        auto value =
            wholeOf([&](char* buffer, std::size_t size) { return get(attribute.c_str(), buffer, size); });
        if (value) {
            attributes.push_back({attribute, *std::move(value)});
        } else if (errno == ENOENT) {
            return {};
        } else if (errno != ENODATA && errno != ENOTSUP && !(isPrivileged(attribute) && errno == EPERM)) {
            throw SystemCallError("read the attribute " + attribute + " of", tree.path(item));
        }
    }
    std::sort(attributes.begin(), attributes.end(),
              [](const auto& left, const auto& right) { return left.name < right.name; });
    return attributes;
}

} // namespace

ItemAttributes readAttributes(int folder, const TreeManifest::Contents& tree, std::uint32_t item) {
    // A path, since what is no file or folder cannot be opened; the root is the folder itself.
    const auto place = descriptorPath(folder) + "/" + (item == 0 ? "." : std::string(tree.name(item)));
    return attributesBy(
        tree, item, [&](char* buffer, std::size_t size) { return ::llistxattr(place.c_str(), buffer, size); },
        [&](const char* name, char* buffer, std::size_t size) {
            return ::lgetxattr(place.c_str(), name, buffer, size);
        });
}

ItemAttributes readFileAttributes(int file, const TreeManifest::Contents& tree, std::uint32_t item) {
    return attributesBy(
        tree, item, [&](char* buffer, std::size_t size) { return ::flistxattr(file, buffer, size); },
        [&](const char* name, char* buffer, std::size_t size) {
            return ::fgetxattr(file, name, buffer, size);
        });
}

void leaveOutVolumeMark(ItemAttributes& attributes) {
    std::erase_if(attributes, [](const auto& attribute) { return isMark(attribute.name); });
}

bool fitIntoBlock(const ItemAttributes& attributes) {
    constexpr std::size_t room = 4096 - 36;
    std::size_t taken = 0;
    for (const auto& attribute : attributes) {
        // An entry, its name and its value, each padded to four bytes.
        taken += 16 + attribute.name.size() + attribute.value.size() + 6;
    }
    return taken <= room;
}

void applyMetadata(int target, const TreeManifest::Contents& tree, std::uint32_t item, Owners owners,
                   AttributeRoom room) {
    const auto& wanted = tree.items[item];
    const OpenItem open(target, wanted.type);
    struct stat now {};
    if (::fstatat(target, "", &now, AT_EMPTY_PATH) != 0) {
        throw SystemCallError("read the metadata of", tree.path(item));
    }
    mode_t mode = wanted.mode;
    // The owner first: the kernel drops setuid and capabilities with the old one.
    if ((now.st_uid != wanted.user || now.st_gid != wanted.group)
        && open.changeOwner(wanted.user, wanted.group) != 0) {
        if (owners == Owners::all || (errno != EPERM && errno != EINVAL)) {
            throw SystemCallError("change the owner of", tree.path(item));
        }
        mode &= ~static_cast<mode_t>(S_ISUID | S_ISGID);
    }
    applyAttributes(open, tree, item, room);
    if (wanted.type != ItemType::link && open.changeMode(mode) != 0) {
        throw SystemCallError("change the mode of", tree.path(item));
    }
    const timespec times[2] = {wanted.accessed, wanted.modified};
    if (open.changeTimes(times) != 0) {
        throw SystemCallError("set the times of", tree.path(item));
    }
}

} // namespace ramdisk
