#include "RamDiskInfrastructure/Linux/Trees/TreeScanner.h"

#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/Linux/Trees/ItemMetadata.h"
#include "RamDiskInfrastructure/Linux/Trees/ParallelJobs.h"
#include "RamDiskInfrastructure/Linux/Trees/TreeComparison.h"

#include <algorithm>
#include <array>
#include <memory>
#include <optional>
#include <unordered_map>

#include <dirent.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace ramdisk {

namespace {

struct FolderEntry {
    TextRange name;
    /// What `readdir` calls the type; unknown on some file systems.
    unsigned char kind;
};

/// What is in a folder that was opened just now, sorted by the bytes of the names, which go into the tree.
std::vector<FolderEntry> entriesOf(int folder, TreeManifest::Contents& tree) {
    alignas(dirent64) std::array<char, 32768> buffer;
    std::vector<FolderEntry> entries;
    while (true) {
        const auto length = ::getdents64(folder, buffer.data(), buffer.size());
        if (length < 0 && errno != ENOENT) {
            throw SystemCallError("read");
        }
        if (length <= 0) {
            break;
        }
        for (std::size_t place = 0; place < static_cast<std::size_t>(length);) {
            const auto* entry = reinterpret_cast<const dirent64*>(buffer.data() + place);
            const std::string_view name(entry->d_name);
            if (name != "." && name != "..") {
                entries.push_back({tree.addText(name), entry->d_type});
            }
            place += entry->d_reclen;
        }
    }
    const auto nameOf = [&](const FolderEntry& entry) { return tree.textOf(entry.name); };
    std::sort(entries.begin(), entries.end(),
              [&](const auto& left, const auto& right) { return nameOf(left) < nameOf(right); });
    // A folder that changes meanwhile may tell a name twice.
    entries.erase(
        std::unique(entries.begin(), entries.end(),
                    [&](const auto& left, const auto& right) { return nameOf(left) == nameOf(right); }),
        entries.end());
    return entries;
}

/// The same of a folder of an earlier scan in which nothing changed.
std::vector<FolderEntry> entriesOf(std::uint32_t folder, const TreeManifest::Contents& earlier,
                                   TreeManifest::Contents& tree) {
    const auto& then = earlier.items[folder];
    std::vector<FolderEntry> entries;
    entries.reserve(then.childCount);
    for (auto child = then.firstChild; child < then.firstChild + then.childCount; ++child) {
        const bool isFolder = earlier.items[child].type == ItemType::folder;
        entries.push_back({tree.addText(earlier.name(child)), isFolder ? DT_DIR : DT_REG});
    }
    return entries;
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
    item.changed = status.st_ctim;
    item.inode = status.st_ino;
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

/// Whether this is the item that was there then, with the same dates.
bool isAsThen(const struct stat& status, const TreeItem& then) {
    return typeOf(status.st_mode) == then.type && status.st_ino == then.inode
           && (then.type != ItemType::file || static_cast<std::uint64_t>(status.st_size) == then.size)
           && isSameTime(status.st_mtim, then.modified) && isSameTime(status.st_ctim, then.changed);
}

} // namespace

TreeManifest::Contents TreeScanner::scan() {
    noteRoot();
    while (!foldersToRead_.empty()) {
        const auto folder = foldersToRead_.back();
        foldersToRead_.pop_back();
        readFolder(folder);
    }
    if (earlier_ != nullptr) {
        findUnwritten();
    }
    lookAtItems();
    if (earlier_ != nullptr) {
        forgetWhatWasOpened();
    }
    putTogether();
    return std::move(tree_);
}

void TreeScanner::noteRoot() {
    struct stat status {};
    if (::fstatat(root_.get(), "", &status, AT_EMPTY_PATH) != 0) {
        throw SystemCallError("read", ".");
    }
    volume_ = status.st_dev;
    makeRoom();
    tree_.items.push_back({});
    findings_.push_back({});
    noteStatus(tree_.items[0], status);
    if (earlier_ != nullptr) {
        pairing_ = {{0}, std::vector(earlier_->items.size(), noItem)};
        pairing_.ofTarget[0] = 0;
    }
    const int folder = cursor_.open(0);
    if (folder < 0) {
        throw SystemCallError("open", ".");
    }
    // Attributes are read by way of /proc; without it every item would seem to have none.
    const auto place = "/proc/self/fd/" + std::to_string(folder);
    if (::access(place.c_str(), F_OK) != 0) {
        throw SystemCallError("reach the open folder by", place);
    }
    foldersToRead_.push_back(0);
}

void TreeScanner::makeRoom() {
    constexpr std::uint64_t most = 1U << 16U;
    struct statvfs volume {};
    if (::fstatvfs(root_.get(), &volume) == 0) {
        const auto items = std::min<std::uint64_t>(volume.f_files - volume.f_ffree, most);
        tree_.items.reserve(items);
        findings_.reserve(items);
        itemsToLookAt_.reserve(items);
    }
}

void TreeScanner::readFolder(std::uint32_t folder) {
    const int descriptor = cursor_.open(folder);
    if (descriptor < 0 && errno == EXDEV) {
        itemsToLookAt_.push_back(folder);
        return;
    }
    if (descriptor < 0 && isGone(errno)) {
        findings_[folder].isGone = true;
        return;
    }
    std::vector<FolderEntry> entries;
    try {
        if (descriptor < 0) {
            throw SystemCallError("open");
        }
        const auto then = unchangedFolder(descriptor, folder);
        entries = then == noItem ? entriesOf(descriptor, tree_) : entriesOf(then, *earlier_, tree_);
    } catch (const SystemCallError& error) {
        throw SystemCallError("read the folder", tree_.path(folder), error.code().value());
    }
    findings_[folder].attributes = readFileAttributes(descriptor, tree_, folder);
    const auto first = static_cast<std::uint32_t>(tree_.items.size());
    for (const auto& entry : entries) {
        addItem(descriptor, folder, entry.name, entry.kind);
    }
    const auto end = static_cast<std::uint32_t>(tree_.items.size());
    tree_.items[folder].firstChild = first;
    tree_.items[folder].childCount = end - first;
    if (earlier_ != nullptr) {
        pairChildrenWithEarlier(folder);
    }
}

std::uint32_t TreeScanner::unchangedFolder(int descriptor, std::uint32_t folder) const {
    const auto then = earlier_ == nullptr ? noItem : pairing_.ofSource[folder];
    struct stat status {};
    const bool isUnchanged = then != noItem && watch_->wouldShowInDate(earlier_->items[then].changed)
                             && ::fstat(descriptor, &status) == 0 && isAsThen(status, earlier_->items[then]);
    return isUnchanged ? then : noItem;
}

void TreeScanner::pairChildrenWithEarlier(std::uint32_t folder) {
    pairing_.ofSource.resize(tree_.items.size(), noItem);
    if (pairing_.ofSource[folder] != noItem) {
        pairChildren(tree_, folder, *earlier_, pairing_.ofSource[folder], pairing_);
    }
}

void TreeScanner::addItem(int folder, std::uint32_t parent, TextRange name, unsigned char kind) {
    const auto number = static_cast<std::uint32_t>(tree_.items.size());
    TreeItem item;
    // Folders alone are told apart for now.
    item.type = ItemType::file;
    item.parent = parent;
    item.original = number;
    item.name = name;
    tree_.items.push_back(item);
    findings_.push_back({});
    if (kind == DT_DIR || kind == DT_UNKNOWN) {
        struct stat status {};
        const std::string text(tree_.name(number));
        if (::fstatat(folder, text.c_str(), &status, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT) == 0
            && S_ISDIR(status.st_mode)) {
            auto& added = tree_.items[number];
            added.type = ItemType::folder;
            noteStatus(added, status);
            if (status.st_dev == volume_) {
                foldersToRead_.push_back(number);
                return;
            }
        }
    }
    itemsToLookAt_.push_back(number);
}

void TreeScanner::findUnwritten() {
    for (const auto number : itemsToLookAt_) {
        const auto other = pairing_.ofSource[number];
        const auto original = other == noItem ? noItem : earlier_->items[other].original;
        if (original != noItem && earlier_->hasOwnContents(original) && earlier_->items[original].hadNoWriter
            && watch_->wouldShowInDate(earlier_->items[original].changed)) {
            tree_.items[number].unwritten = original;
        }
    }
}

void TreeScanner::forgetWhatWasOpened() {
    // Whoever wrote to a file before it was looked at had opened it before, and has been reported by now.
    const auto* const opened = watch_->openedByOthers();
    for (const auto number : itemsToLookAt_) {
        auto& item = tree_.items[number];
        if (opened == nullptr || opened->contains(item.inode)) {
            item.unwritten = noItem;
        }
    }
}

void TreeScanner::lookAtItems() {
    ParallelJobs(itemsToLookAt_.size(), 0).run([this](unsigned) {
        const auto cursor = std::make_shared<FolderCursor>(root_, tree_);
        return [this, cursor](std::size_t job) { lookAt(*cursor, itemsToLookAt_[job]); };
    });
}

void TreeScanner::lookAt(FolderCursor& cursor, std::uint32_t number) {
    auto& item = tree_.items[number];
    auto& finding = findings_[number];
    const int folder = cursor.open(item.parent);
    const std::string name(tree_.name(number));
    struct stat status {};
    if (folder < 0 || ::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT) != 0) {
        if (!isGone(errno)) {
            throw SystemCallError("read", tree_.path(number));
        }
        finding.isGone = true;
        return;
    }
    const auto type = typeOf(status.st_mode);
    // What became a folder since its name was read has not been walked: then what it was is gone.
    if (!type || (*type == ItemType::folder ? item.type != ItemType::folder : status.st_dev != volume_)) {
        finding.isGone = true;
        return;
    }
    item.type = *type;
    noteStatus(item, status);
    if (item.unwritten != noItem && !isAsThen(status, earlier_->items[item.unwritten])) {
        item.unwritten = noItem;
    }
    if (item.type != ItemType::folder && status.st_nlink > 1) {
        finding.hasOtherNames = true;
    }
    if (item.type == ItemType::link) {
        auto target = readLink(folder, name, static_cast<std::size_t>(status.st_size));
        if (!target) {
            if (!isGone(errno) && errno != EINVAL) {
                throw SystemCallError("read the link", tree_.path(number));
            }
            finding.isGone = true;
            return;
        }
        finding.linkTarget = *std::move(target);
    }
    if (item.type != ItemType::file || item.size == 0) {
        // Those of the others are read with their contents.
        finding.attributes = readAttributes(folder, tree_, number);
    }
}

void TreeScanner::putTogether() {
    leaveOutVolumeMark(findings_[0].attributes);
    std::unordered_map<ino_t, std::uint32_t> originals;
    std::vector<bool> gone;
    for (std::uint32_t number = 0; number < tree_.items.size(); ++number) {
        auto& item = tree_.items[number];
        auto& finding = findings_[number];
        if (finding.isGone) {
            gone.resize(tree_.items.size());
            gone[number] = true;
            continue;
        }
        if (!finding.linkTarget.empty()) {
            item.linkTarget = tree_.addText(finding.linkTarget);
        }
        if (finding.hasOtherNames) {
            const auto first = originals.try_emplace(item.inode, number).first->second;
            // An inode may go and its number come again between two looks.
            item.original = tree_.items[first].type == item.type ? first : number;
        }
        if (item.original == number) {
            tree_.setAttributes(number, std::move(finding.attributes));
        } else {
            item.attributes = tree_.items[item.original].attributes;
        }
    }
    if (!gone.empty()) {
        removeItems(tree_, gone);
    }
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
