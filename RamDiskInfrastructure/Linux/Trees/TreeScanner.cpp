#include "RamDiskInfrastructure/Linux/Trees/TreeScanner.h"

#include "RamDiskInfrastructure/Linux/SystemCallError.h"
#include "RamDiskInfrastructure/Linux/Trees/ItemMetadata.h"

#include <algorithm>
#include <array>
#include <memory>
#include <optional>

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ramdisk {

namespace {

/// The names in an open folder, sorted by their bytes.
std::vector<std::string> namesIn(int folder) {
    auto own = openForReading(folder, ".", O_DIRECTORY);
    const std::unique_ptr<DIR, int (*)(DIR*)> stream(own ? ::fdopendir(own.get()) : nullptr, ::closedir);
    if (!stream) {
        throw SystemCallError("read");
    }
    static_cast<void>(own.release());
    std::vector<std::string> names;
    while (true) {
        errno = 0;
        const auto* entry = ::readdir(stream.get());
        if (entry == nullptr) {
            break;
        }
        const std::string_view name(entry->d_name);
        if (name != "." && name != "..") {
            names.emplace_back(name);
        }
    }
    if (errno != 0 && errno != ENOENT) {
        throw SystemCallError("read");
    }
    std::sort(names.begin(), names.end());
    names.erase(std::unique(names.begin(), names.end()), names.end());
    return names;
}

std::optional<ItemType> typeOf(mode_t mode) {
    switch (mode & S_IFMT) {
    case S_IFDIR:
        return ItemType::folder;
    case S_IFREG:
        return ItemType::file;
    case S_IFLNK:
        return ItemType::link;
    case S_IFIFO:
        return ItemType::fifo;
    case S_IFCHR:
        return ItemType::characterDevice;
    case S_IFBLK:
        return ItemType::blockDevice;
    default:
        return std::nullopt;
    }
}

void noteStatus(TreeItem& item, const struct stat& status) {
    item.mode = static_cast<std::uint16_t>(status.st_mode & 07777U);
    item.user = status.st_uid;
    item.group = status.st_gid;
    item.modified = status.st_mtim;
    item.accessed = status.st_atim;
    if (item.type == ItemType::file) {
        item.size = static_cast<std::uint64_t>(status.st_size);
    }
    if (item.type == ItemType::characterDevice || item.type == ItemType::blockDevice) {
        item.device = status.st_rdev;
    }
}

std::optional<std::string> readLink(int folder, const std::string& name, std::size_t length) {
    std::string target(std::max<std::size_t>(length + 1, 256), '\0');
    while (true) {
        const auto read = ::readlinkat(folder, name.c_str(), target.data(), target.size());
        if (read < 0) {
            return std::nullopt;
        }
        if (static_cast<std::size_t>(read) < target.size()) {
            target.resize(static_cast<std::size_t>(read));
            return target;
        }
        target.resize(target.size() * 2);
    }
}

} // namespace

TreeManifest::Contents TreeScanner::scan() {
    noteRoot();
    while (!foldersToRead_.empty()) {
        const auto folder = foldersToRead_.back();
        foldersToRead_.pop_back();
        readFolder(folder);
    }
    if (!gone_.empty()) {
        removeItems(tree_, gone_);
    }
    return std::move(tree_);
}

void TreeScanner::noteRoot() {
    struct stat status {};
    if (::fstatat(root_.get(), "", &status, AT_EMPTY_PATH) != 0) {
        throw SystemCallError("read", ".");
    }
    volume_ = status.st_dev;
    tree_.items.push_back({});
    noteStatus(tree_.items[0], status);
    const int folder = cursor_.open(0);
    if (folder < 0) {
        throw SystemCallError("open", ".");
    }
    // Attributes are read by way of /proc; without it every item would seem to have none.
    const auto place = "/proc/self/fd/" + std::to_string(folder);
    if (::access(place.c_str(), F_OK) != 0) {
        throw SystemCallError("reach the open folder by", place);
    }
    noteAttributes(folder, 0);
    foldersToRead_.push_back(0);
}

void TreeScanner::readFolder(std::uint32_t folder) {
    const int descriptor = cursor_.open(folder);
    if (descriptor < 0 && errno == EXDEV) {
        return;
    }
    if (descriptor < 0 && isGone(errno)) {
        gone_.resize(tree_.items.size());
        gone_[folder] = true;
        return;
    }
    std::vector<std::string> names;
    try {
        if (descriptor < 0) {
            throw SystemCallError("open");
        }
        names = namesIn(descriptor);
    } catch (const SystemCallError& error) {
        throw SystemCallError("read the folder", tree_.path(folder), error.code().value());
    }
    const auto first = static_cast<std::uint32_t>(tree_.items.size());
    for (const auto& name : names) {
        note(descriptor, folder, name);
    }
    const auto end = static_cast<std::uint32_t>(tree_.items.size());
    tree_.items[folder].firstChild = first;
    tree_.items[folder].childCount = end - first;
}

bool TreeScanner::note(int folder, std::uint32_t parent, const std::string& name) {
    const auto number = static_cast<std::uint32_t>(tree_.items.size());
    const auto pathHere = [&] {
        return (std::filesystem::path(tree_.path(parent)) / name).lexically_normal();
    };
    struct stat status {};
    if (::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT) != 0) {
        if (isGone(errno)) {
            return false;
        }
        throw SystemCallError("read", pathHere());
    }
    const auto type = typeOf(status.st_mode);
    if (!type || (status.st_dev != volume_ && *type != ItemType::folder)) {
        return false;
    }
    TreeItem item;
    item.type = *type;
    item.parent = parent;
    item.original = number;
    noteStatus(item, status);
    if (item.type == ItemType::link) {
        const auto target = readLink(folder, name, static_cast<std::size_t>(status.st_size));
        if (!target) {
            if (isGone(errno) || errno == EINVAL) {
                return false;
            }
            throw SystemCallError("read the link", pathHere());
        }
        item.linkTarget = tree_.addText(*target);
    }
    item.name = tree_.addText(name);
    if (item.type != ItemType::folder && status.st_nlink > 1) {
        item.original = originals_.try_emplace({status.st_dev, status.st_ino}, number).first->second;
    }
    tree_.items.push_back(item);
    if (tree_.hasOwnContents(number)) {
        // Its attributes are read with its contents.
        return true;
    }
    if (item.original == number) {
        noteAttributes(folder, number);
    } else {
        tree_.items[number].attributes = tree_.items[item.original].attributes;
    }
    if (item.type == ItemType::folder && status.st_dev == volume_) {
        foldersToRead_.push_back(number);
    }
    return true;
}

void TreeScanner::noteAttributes(int folder, std::uint32_t item) {
    auto attributes = readAttributes(folder, tree_, item);
    if (item == 0) {
        leaveOutVolumeMark(attributes);
    }
    tree_.setAttributes(item, std::move(attributes));
}

void removeItems(TreeManifest::Contents& tree, const std::vector<bool>& gone) {
    constexpr auto none = ~std::uint32_t{0};
    std::vector<std::uint32_t> number(tree.items.size(), none);
    std::vector<std::uint32_t> originalOf(tree.items.size(), none);
    std::vector<TreeItem> left;
    for (std::uint32_t item = 0; item < tree.items.size(); ++item) {
        const bool isGone = item < gone.size() && gone[item];
        const auto parent = number[tree.items[item].parent];
        if (item != 0 && (isGone || parent == none)) {
            continue;
        }
        number[item] = static_cast<std::uint32_t>(left.size());
        auto& kept = left.emplace_back(tree.items[item]);
        const auto& first = tree.items[kept.original];
        kept.firstBlock = first.firstBlock;
        kept.blockCount = first.blockCount;
        auto& original = originalOf[kept.original];
        if (original == none) {
            original = number[item];
        } else {
            kept.firstBlock = 0;
            kept.blockCount = 0;
        }
        kept.original = original;
        kept.firstChild = 0;
        kept.childCount = 0;
        if (item != 0) {
            kept.parent = parent;
            auto& folder = left[parent];
            if (folder.childCount++ == 0) {
                folder.firstChild = number[item];
            }
        }
    }
    tree.items = std::move(left);
}

} // namespace ramdisk
