#include "RamDiskInfrastructure/Trees/TreeScanner.h"

#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/Trees/FolderListing.h"
#include "RamDiskInfrastructure/Trees/ItemMetadata.h"
#include "RamDiskInfrastructure/Trees/ItemStatus.h"
#include "RamDiskInfrastructure/Trees/TreeComparison.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <unordered_map>
#include <utility>

#include <dirent.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace ramdisk {

namespace {

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

void noteStatus(TreeItem& item, const ItemStatus& seen) {
    const auto& status = seen.basic;
    item.flags = seen.flags;
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

/// As it was then.
void noteMetadata(TreeItem& item, const TreeItem& then) {
    item.type = then.type;
    item.mode = then.mode;
    item.flags = then.flags;
    item.user = then.user;
    item.group = then.group;
    item.modified = then.modified;
    item.accessed = then.accessed;
    item.changed = then.changed;
    item.inode = then.inode;
    item.size = then.size;
    item.device = then.device;
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

struct TreeScanner::FolderFinding {
    bool isOtherVolume = false;
    /// The folder of the earlier scan in which the same was; then there is no listing.
    std::uint32_t unchangedSince = noItem;
    FolderListing listing;
};

TreeManifest::Contents TreeScanner::scan(ProgressMeter& meter) {
    noteRoot();
    makeRoom(meter);
    walk();
    if (earlier_ != nullptr) {
        findUnwritten();
    }
    lookAtItems(meter);
    if (earlier_ != nullptr) {
        lookAtWhatWasTouched(meter);
    }
    putTogether(meter);
    return std::move(tree_);
}

void TreeScanner::noteRoot() {
    struct stat status {};
    if (::fstatat(root_.get(), "", &status, AT_EMPTY_PATH) != 0) {
        throw SystemCallError("read", ".");
    }
    volume_ = status.st_dev;
    tree_.items.push_back({});
    findings_.push_back({});
    if (earlier_ != nullptr) {
        pairing_ = {{0}, std::vector(earlier_->items.size(), noItem)};
        pairing_.ofTarget[0] = 0;
    }
    const int folder = cursors_.emplace_back(root_, tree_).open(0);
    if (folder < 0) {
        throw SystemCallError("open", ".");
    }
    // Attributes are read by way of /proc; without it every item would seem to have none.
    const auto place = "/proc/self/fd/" + std::to_string(folder);
    if (::access(place.c_str(), F_OK) != 0) {
        throw SystemCallError("reach the open folder by", place);
    }
}

void TreeScanner::makeRoom(ProgressMeter& meter) {
    constexpr std::uint64_t most = 1U << 16U;
    struct statvfs volume {};
    if (::fstatvfs(root_.get(), &volume) != 0) {
        return;
    }
    const auto items = volume.f_files - volume.f_ffree;
    const auto room = std::min<std::uint64_t>(items, most);
    tree_.items.reserve(room);
    findings_.reserve(room);
    itemsToLookAt_.reserve(room);
    if (readsSmallFiles()) {
        // Until all sizes are known.
        meter.expect(std::uint64_t{volume.f_blocks - volume.f_bfree} * volume.f_frsize, items);
    }
}

void TreeScanner::makeCursors(const ParallelJobs& jobs) {
    while (cursors_.size() < jobs.workerCount()) {
        cursors_.emplace_back(root_, tree_);
    }
}

void TreeScanner::walk() {
    foldersToRead_ = {0};
    while (!foldersToRead_.empty()) {
        const auto folders = std::exchange(foldersToRead_, {});
        std::vector<FolderFinding> found(folders.size());
        const ParallelJobs jobs(folders.size(), 0, ParallelJobs::Load::lengthy);
        makeCursors(jobs);
        jobs.run([&](unsigned worker) {
            return [&, &cursor = cursors_[worker]](std::size_t job) {
                found[job] = readFolder(cursor, folders[job]);
            };
        });
        for (std::size_t number = 0; number < folders.size(); ++number) {
            addItems(folders[number], found[number]);
        }
    }
}

TreeScanner::FolderFinding TreeScanner::readFolder(FolderCursor& cursor, std::uint32_t folder) {
    FolderFinding found;
    const int descriptor = cursor.open(folder);
    if (descriptor < 0 && isGone(errno)) {
        found.isOtherVolume = errno == EXDEV;
        findings_[folder].isGone = !found.isOtherVolume;
        return found;
    }
    try {
        const auto status = descriptor < 0 ? std::nullopt : readStatus(descriptor, "", AT_EMPTY_PATH);
        if (!status) {
            throw SystemCallError("open");
        }
        if (status->basic.st_dev != volume_) {
            found.isOtherVolume = true;
            return found;
        }
        noteStatus(tree_.items[folder], *status);
        found.unchangedSince = unchangedFolder(status->basic, folder);
        if (found.unchangedSince == noItem) {
            found.listing = FolderListing::of(descriptor);
        }
    } catch (const SystemCallError& error) {
        throw SystemCallError("read the folder", tree_.path(folder), error.code().value());
    }
    findings_[folder].reading.attributes = readFileAttributes(descriptor, tree_, folder);
    return found;
}

std::uint32_t TreeScanner::unchangedFolder(const struct stat& status, std::uint32_t folder) const {
    const auto then = earlier_ == nullptr ? noItem : pairing_.ofSource[folder];
    const bool isUnchanged = then != noItem && watch_->wouldShowInDate(earlier_->items[then].changed)
                             && isAsThen(status, earlier_->items[then]);
    return isUnchanged ? then : noItem;
}

void TreeScanner::addItems(std::uint32_t folder, const FolderFinding& found) {
    if (found.isOtherVolume) {
        itemsToLookAt_.push_back(folder);
        return;
    }
    const auto first = static_cast<std::uint32_t>(tree_.items.size());
    findings_[folder].isUnchanged = found.unchangedSince != noItem;
    if (found.unchangedSince != noItem) {
        const auto& then = earlier_->items[found.unchangedSince];
        for (auto child = then.firstChild; child < then.firstChild + then.childCount; ++child) {
            const bool isFolder = earlier_->items[child].type == ItemType::folder;
            addItem(folder, earlier_->name(child), isFolder ? DT_DIR : DT_UNKNOWN);
        }
    }
    for (const auto& entry : found.listing.entries) {
        addItem(folder, found.listing.name(entry), entry.kind);
    }
    const auto end = static_cast<std::uint32_t>(tree_.items.size());
    tree_.items[folder].firstChild = first;
    tree_.items[folder].childCount = end - first;
    if (earlier_ != nullptr) {
        pairing_.ofSource.resize(tree_.items.size(), noItem);
        if (pairing_.ofSource[folder] != noItem) {
            pairChildren(tree_, folder, *earlier_, pairing_.ofSource[folder], pairing_);
        }
    }
}

void TreeScanner::addItem(std::uint32_t parent, std::string_view name, unsigned char kind) {
    const auto number = static_cast<std::uint32_t>(tree_.items.size());
    auto& item = tree_.items.emplace_back();
    // Folders alone are told apart for now.
    item.type = kind == DT_DIR ? ItemType::folder : ItemType::file;
    item.parent = parent;
    item.original = number;
    item.name = tree_.addText(name);
    findings_.emplace_back().isListedAsFile = kind == DT_REG;
    (kind == DT_DIR ? foldersToRead_ : itemsToLookAt_).push_back(number);
}

void TreeScanner::findUnwritten() {
    std::vector<bool> hasOtherNames(earlier_->items.size());
    for (std::uint32_t item = 0; item < earlier_->items.size(); ++item) {
        if (earlier_->items[item].original != item) {
            hasOtherNames[earlier_->items[item].original] = true;
        }
    }
    const auto* const touched = watch_->touchedByOthers();
    std::vector<std::uint32_t> left;
    for (const auto number : itemsToLookAt_) {
        const auto other = pairing_.ofSource[number];
        const auto original = other == noItem ? noItem : earlier_->items[other].original;
        const bool isCandidate = original != noItem && earlier_->hasOwnContents(original)
                                 && earlier_->items[original].hadNoWriter
                                 && watch_->wouldShowInDate(earlier_->items[original].changed);
        findings_[number].unwritten = isCandidate ? original : noItem;
        if (isCandidate && original == other && !hasOtherNames[original]
            && findings_[tree_.items[number].parent].isUnchanged && touched != nullptr
            && !touched->contains(earlier_->items[original].inode)) {
            noteMetadata(tree_.items[number], earlier_->items[original]);
            itemsSpared_.push_back(number);
        } else {
            left.push_back(number);
        }
    }
    itemsToLookAt_ = std::move(left);
}

void TreeScanner::lookAtWhatWasTouched(ProgressMeter& meter) {
    // Whoever wrote to a file before it was looked at had opened it before, and has been reported by now.
    const auto* const touched = watch_->touchedByOthers();
    const auto isTouched = [&](std::uint32_t number) {
        return touched == nullptr || touched->contains(tree_.items[number].inode);
    };
    const auto forget = [&](std::uint32_t number) { findings_[number].unwritten = noItem; };
    for (const auto number : std::exchange(itemsToLookAt_, {})) {
        if (isTouched(number)) {
            forget(number);
        }
    }
    std::copy_if(itemsSpared_.begin(), itemsSpared_.end(), std::back_inserter(itemsToLookAt_), isTouched);
    std::for_each(itemsToLookAt_.begin(), itemsToLookAt_.end(), forget);
    lookAtItems(meter);
}

void TreeScanner::lookAtItems(ProgressMeter& meter) {
    const auto count = itemsToLookAt_.size();
    const ParallelJobs jobs(count, readsSmallFiles() ? count * FileReader::smallFile : 0);
    makeCursors(jobs);
    while (readsSmallFiles() && readers_.size() < jobs.workerCount()) {
        readers_.emplace_back(tree_, Writers::note, meter);
    }
    jobs.run([&](unsigned worker) {
        return [this, worker](std::size_t job) { lookAt(itemsToLookAt_[job], worker); };
    });
}

bool TreeScanner::readSmallFile(int folder, std::uint32_t number, unsigned worker) {
    const auto file = openForReading(folder, std::string(tree_.name(number)).c_str());
    const auto seen = file ? readStatus(file.get(), "", AT_EMPTY_PATH) : std::nullopt;
    if (!seen || !S_ISREG(seen->basic.st_mode) || seen->basic.st_dev != volume_) {
        return false;
    }
    const auto& status = seen->basic;
    auto& item = tree_.items[number];
    auto& finding = findings_[number];
    noteStatus(item, *seen);
    finding.hasOtherNames = status.st_nlink > 1;
    if (item.size == 0) {
        finding.reading.attributes = readFileAttributes(file.get(), tree_, number);
    } else if (!finding.hasOtherNames && item.size <= FileReader::smallFile) {
        finding.reading = readers_[worker].read(file.get(), status, number, 0, item.size);
        finding.reader = worker;
    }
    return true;
}

void TreeScanner::lookAt(std::uint32_t number, unsigned worker) {
    auto& item = tree_.items[number];
    auto& finding = findings_[number];
    const int folder = cursors_[worker].open(item.parent);
    if (readsSmallFiles() && finding.isListedAsFile && folder >= 0 && readSmallFile(folder, number, worker)) {
        return;
    }
    const std::string name(tree_.name(number));
    const auto seen =
        folder < 0 ? std::nullopt : readStatus(folder, name.c_str(), AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT);
    if (!seen) {
        if (!isGone(errno)) {
            throw SystemCallError("read", tree_.path(number));
        }
        finding.isGone = true;
        return;
    }
    const auto& status = seen->basic;
    const auto type = typeOf(status.st_mode);
    // What became a folder since its name was read has not been walked: then what it was is gone.
    if (!type || (*type == ItemType::folder ? item.type != ItemType::folder : status.st_dev != volume_)) {
        finding.isGone = true;
        return;
    }
    item.type = *type;
    noteStatus(item, *seen);
    if (finding.unwritten != noItem && !isAsThen(status, earlier_->items[finding.unwritten])) {
        finding.unwritten = noItem;
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
        finding.reading.attributes = readAttributes(folder, tree_, number);
    }
}

void TreeScanner::putTogether(ProgressMeter& meter) {
    leaveOutVolumeMark(findings_[0].reading.attributes);
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
        if (item.original != number) {
            item.attributes = tree_.items[item.original].attributes;
        } else if (finding.unwritten != noItem) {
            takeOver(number);
            meter.add(item.size, 1);
        } else if (finding.reader) {
            readers_[*finding.reader].note(std::move(finding.reading), tree_, number);
        } else {
            tree_.setAttributes(number, std::move(finding.reading.attributes));
        }
    }
    if (!gone.empty()) {
        tree_.remove(gone);
    }
}

void TreeScanner::takeOver(std::uint32_t number) {
    const auto then = findings_[number].unwritten;
    const auto count = earlier_->items[then].blockCount;
    auto& item = tree_.items[number];
    item.firstBlock = tree_.blocks.size();
    item.blockCount = count;
    item.hadNoWriter = true;
    item.areContentsNoted = true;
    tree_.blocks.insert(tree_.blocks.end(), earlier_->blocksOf(then), earlier_->blocksOf(then) + count);
    tree_.setAttributes(number, ItemAttributes(earlier_->attributes(then)));
}

} // namespace ramdisk
