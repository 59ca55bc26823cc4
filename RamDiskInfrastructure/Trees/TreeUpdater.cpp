#include "RamDiskInfrastructure/Trees/TreeUpdater.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/Trees/ItemMetadata.h"
#include "RamDiskInfrastructure/Trees/ItemStatus.h"

#include <algorithm>
#include <memory>
#include <string>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ramdisk {

namespace {

constexpr mode_t ownerOnly = S_IRUSR | S_IWUSR;

/// Lets the owner at an item that its mode keeps from him; the mode that it is to have comes at the end.
bool openToOwner(int folder, const char* name) {
    const auto item = openItem(folder, name, O_PATH);
    struct stat status {};
    if (!item || ::fstatat(item.get(), "", &status, AT_EMPTY_PATH) != 0 || S_ISLNK(status.st_mode)) {
        return false;
    }
    const auto path = "/proc/self/fd/" + std::to_string(item.get());
    return ::chmod(path.c_str(), (status.st_mode & 07777U) | S_IRWXU) == 0;
}

/// Whatever cannot be made new because the name is there already: all old names were known, so the volume
/// takes two names for one.
[[noreturn]] void failToMake(const std::string& path) {
    if (errno == EEXIST) {
        throw RamDiskError(RamDiskError::NamesMerged{});
    }
    throw SystemCallError("make", path);
}

/// By a descriptor of its own, which can be had whatever flags the item has.
FileDescriptor openToFlag(FolderCursor& cursor, const TreeManifest::Contents& tree, std::uint32_t item) {
    const int folder = cursor.open(tree.items[item].parent);
    const auto name = item == 0 ? std::string(".") : std::string(tree.name(item));
    return folder < 0 ? FileDescriptor() : openForReading(folder, name.c_str());
}

mode_t kindOf(ItemType type) {
    switch (type) {
    case ItemType::folder:
        return S_IFDIR;
    case ItemType::link:
        return S_IFLNK;
    case ItemType::fifo:
        return S_IFIFO;
    case ItemType::characterDevice:
        return S_IFCHR;
    case ItemType::blockDevice:
        return S_IFBLK;
    default:
        return S_IFREG;
    }
}

} // namespace

TreeUpdater::TreeUpdater(const TreeUpdate& update, const ProgressObserver& observer)
    : update_(update),
      source_(update.sourceManifest.contents()),
      target_(update.targetManifest.contents()),
      plan_(source_, target_, update.extras),
      meter_(observer),
      gone_(source_.items.size()),
      unfinished_(source_.items.size()) {}

void TreeUpdater::perform() {
    if (update_.flags == Flags::apply) {
        liftFlags();
    }
    openSealedFolders();
    removeItems();
    makeFolders();
    try {
        writeItems();
    } catch (...) {
        removeUnfinished();
        throw;
    }
    makeLinks();
    finishFolders();
    if (update_.flags == Flags::apply) {
        setFlags();
    }
    meter_.finish();
}

void TreeUpdater::liftFlags() {
    std::vector<bool> isRemoved(target_.items.size());
    for (const auto item : plan_.removals) {
        isRemoved[item] = true;
    }
    FolderCursor cursor(update_.target, target_);
    for (std::uint32_t item = 0; item < target_.items.size(); ++item) {
        const bool isConcerned = plan_.pairing.ofTarget[item] != noItem || isRemoved[item];
        if (target_.items[item].flags == 0 || !isConcerned
            || (item == 0 && update_.rootMetadata == RootMetadata::leave)) {
            continue;
        }
        const auto open = openToFlag(cursor, target_, item);
        if (open ? !setItemFlags(open.get(), 0) : !isGone(errno)) {
            throw SystemCallError("take the flags from", target_.path(item));
        }
    }
}

void TreeUpdater::setFlags() {
    FolderCursor cursor(update_.target, source_);
    for (std::uint32_t item = 0; item < source_.items.size(); ++item) {
        if (source_.items[item].flags == 0 || gone_[item] != 0
            || (item == 0 && update_.rootMetadata == RootMetadata::leave)) {
            continue;
        }
        const auto open = openToFlag(cursor, source_, item);
        if (open && setItemFlags(open.get(), source_.items[item].flags)) {
            continue;
        }
        if (errno != EPERM && errno != ENOTTY && errno != EOPNOTSUPP && errno != EINVAL && !isGone(errno)) {
            throw SystemCallError("set the flags of", source_.path(item));
        }
        traceRefused("restore", "FS_IOC_SETFLAGS", "“" + source_.path(item) + "” has no flags");
    }
}

/// A file that is cut off looks like a whole one to who does not know.
void TreeUpdater::removeUnfinished() noexcept {
    try {
        FolderCursor cursor(update_.target, source_);
        for (std::uint32_t item = 0; item < source_.items.size(); ++item) {
            const int folder = unfinished_[item] != 0 ? cursor.open(source_.items[item].parent) : -1;
            if (folder >= 0) {
                static_cast<void>(::unlinkat(folder, std::string(source_.name(item)).c_str(), 0));
            }
        }
    } catch (const std::exception&) {
        // Why the files could not be written is what the caller must hear.
        traceCaught("update", "files that are cut off stay");
    }
}

void TreeUpdater::openSealedFolders() {
    if (::geteuid() == 0) {
        return;
    }
    FolderCursor cursor(update_.target, target_);
    for (std::uint32_t item = 1; item < target_.items.size(); ++item) {
        const auto& folder = target_.items[item];
        if (folder.type != ItemType::folder || (folder.mode & S_IRWXU) == S_IRWXU) {
            continue;
        }
        const int parent = cursor.open(folder.parent);
        if (parent >= 0 && openToOwner(parent, std::string(target_.name(item)).c_str())
            && plan_.pairing.ofTarget[item] != noItem) {
            plan_.touched[plan_.pairing.ofTarget[item]] = true;
        }
    }
}

void TreeUpdater::removeItems() {
    FolderCursor cursor(update_.target, target_);
    for (const auto item : plan_.removals) {
        const int folder = cursor.open(target_.items[item].parent);
        const std::string name(target_.name(item));
        const int flags = target_.items[item].type == ItemType::folder ? AT_REMOVEDIR : 0;
        if ((folder < 0 || ::unlinkat(folder, name.c_str(), flags) != 0) && errno != ENOENT) {
            throw SystemCallError("remove", target_.path(item));
        }
    }
}

void TreeUpdater::makeFolders() {
    Places places{FolderCursor(update_.source, source_), FolderCursor(update_.target, source_)};
    for (std::uint32_t item = 1; item < source_.items.size(); ++item) {
        const auto& folder = source_.items[item];
        if (folder.type != ItemType::folder || plan_.steps[item] != UpdateStep::create) {
            continue;
        }
        const bool isLeftOut =
            gone_[folder.parent] != 0 || (places.source.open(item) < 0 && isGone(errno) && errno != EXDEV);
        if (isLeftOut) {
            gone_[item] = 1;
        } else if (::mkdirat(targetFolder(places.target, folder.parent),
                             std::string(source_.name(item)).c_str(), S_IRWXU)
                   != 0) {
            failToMake(source_.path(item));
        }
    }
}

std::vector<TreeUpdater::Job> TreeUpdater::jobs() const {
    std::vector<Job> jobs;
    for (std::uint32_t item = 0; item < source_.items.size(); ++item) {
        const auto step = plan_.steps[item];
        if (source_.items[item].type == ItemType::folder || step == UpdateStep::nothing
            || step == UpdateStep::link) {
            continue;
        }
        const auto size = source_.items[source_.items[item].original].size;
        const auto partSize = isLarge(item) ? partSizeOf(size) : size + 1;
        for (std::uint64_t start = 0; start == 0 || start < size; start += partSize) {
            jobs.push_back({item, {start, std::min(size, start + partSize)}});
        }
    }
    return jobs;
}

void TreeUpdater::writeItems() {
    auto jobs = this->jobs();
    Places ownPlaces{FolderCursor(update_.source, source_), FolderCursor(update_.target, source_)};
    std::uint64_t bytes = 0;
    std::uint64_t items = 0;
    for (const auto& job : jobs) {
        if (job.part.start == 0) {
            const bool hasContents = plan_.steps[job.item] != UpdateStep::metadata;
            bytes += hasContents ? source_.dataSize(source_.items[job.item].original) : 0;
            ++items;
            if (isLarge(job.item)) {
                prepareLargeFile(job.item, ownPlaces);
            }
        }
    }
    meter_.expect(bytes, items);
    const auto load =
        update_.pageCache == PageCache::bypass ? ParallelJobs::Load::waiting : ParallelJobs::Load::brief;
    ParallelJobs(jobs.size(), bytes, load).run([&](unsigned) {
        const auto places = std::make_shared<Places>(
            Places{FolderCursor(update_.source, source_), FolderCursor(update_.target, source_)});
        const auto writer =
            std::make_shared<FileWriter>(meter_, renewals_, update_.pageCache, update_.hugePages);
        return [this, &jobs, places, writer](std::size_t number) {
            auto& job = jobs[number];
            if (isLarge(job.item)) {
                writePart(job, *places, *writer);
            } else {
                job.isAsListed = writeItem(job.item, *places, *writer);
                meter_.add(0, 1);
            }
        };
    });
    for (const auto& job : jobs) {
        if (job.isGone) {
            gone_[job.item] = 1;
        }
    }
    tellDiffering(jobs);
    for (const auto& job : jobs) {
        if (job.part.start == 0 && isLarge(job.item)) {
            finishLargeFile(job.item, ownPlaces);
            meter_.add(0, 1);
        }
    }
}

void TreeUpdater::tellDiffering(const std::vector<Job>& jobs) const {
    for (const auto& job : jobs) {
        auto* const differing = update_.differing;
        if (differing != nullptr && !job.isAsListed && gone_[job.item] == 0
            && (differing->empty() || differing->back() != job.item)) {
            differing->push_back(job.item);
        }
    }
}

bool TreeUpdater::isLarge(std::uint32_t item) const {
    return source_.items[item].type == ItemType::file && plan_.steps[item] != UpdateStep::metadata
           && source_.items[source_.items[item].original].size > largestWholeFile;
}

void TreeUpdater::prepareLargeFile(std::uint32_t item, Places& places) {
    if (gone_[source_.items[item].parent] != 0) {
        return;
    }
    const auto file =
        plan_.steps[item] == UpdateStep::create
            ? makeFile(item, places)
            : openTarget(targetFolder(places.target, source_.items[item].parent), item, O_RDWR | O_NONBLOCK);
    if (::ftruncate(file.get(), static_cast<off_t>(source_.items[source_.items[item].original].size)) != 0) {
        throw SystemCallError("write", source_.path(item));
    }
}

void TreeUpdater::writePart(Job& job, Places& places, FileWriter& writer) {
    const auto parent = source_.items[job.item].parent;
    const auto file = gone_[parent] != 0 ? FileDescriptor() : openSource(job.item, places);
    if (!file) {
        job.isGone = true;
        return;
    }
    const auto open = openTarget(targetFolder(places.target, parent), job.item, O_RDWR | O_NONBLOCK);
    if (plan_.steps[job.item] == UpdateStep::create) {
        job.isAsListed = writer.copyPart(file, open, {source_, job.item}, job.part);
    } else {
        job.isAsListed = writer.updatePart(file, open, {source_, job.item},
                                           {target_, plan_.pairing.ofSource[job.item]}, job.part);
    }
}

void TreeUpdater::finishLargeFile(std::uint32_t item, Places& places) {
    if (gone_[source_.items[item].parent] != 0) {
        return;
    }
    if (gone_[item] != 0) {
        leaveOut(item, places);
        return;
    }
    const auto open =
        openTarget(targetFolder(places.target, source_.items[item].parent), item, O_RDONLY | O_NONBLOCK);
    apply(open.get(), item);
    unfinished_[item] = 0;
}

bool TreeUpdater::writeItem(std::uint32_t item, Places& places, FileWriter& writer) {
    if (gone_[source_.items[item].parent] != 0) {
        gone_[item] = 1;
    } else if (source_.items[item].type == ItemType::file && plan_.steps[item] != UpdateStep::metadata) {
        return writeFile(item, places, writer);
    } else {
        if (plan_.steps[item] == UpdateStep::create) {
            makeSpecial(item, places);
        }
        const int folder = targetFolder(places.target, source_.items[item].parent);
        const bool isFile = source_.items[item].type == ItemType::file;
        const auto open = openTarget(folder, item, isFile ? O_RDONLY | O_NONBLOCK : O_PATH);
        apply(open.get(), item);
    }
    return true;
}

bool TreeUpdater::writeFile(std::uint32_t item, Places& places, FileWriter& writer) {
    const auto file = openSource(item, places);
    if (!file) {
        leaveOut(item, places);
        return true;
    }
    bool isAsListed = true;
    if (plan_.steps[item] == UpdateStep::create) {
        const auto made = makeFile(item, places);
        isAsListed = writer.copyWhole(file, made, {source_, item});
        apply(made.get(), item);
        unfinished_[item] = 0;
    } else {
        const int folder = targetFolder(places.target, source_.items[item].parent);
        const auto open = openTarget(folder, item, O_RDWR | O_NONBLOCK);
        isAsListed = writer.update(file, open, {source_, item}, {target_, plan_.pairing.ofSource[item]});
        apply(open.get(), item);
        if (update_.pageCache == PageCache::bypass) {
            // It is to reach the device soon, which has little to do while the next ones are compared.
            static_cast<void>(::sync_file_range(open.get(), 0, 0, SYNC_FILE_RANGE_WRITE));
        }
    }
    return isAsListed;
}

void TreeUpdater::apply(int target, std::uint32_t item) const {
    if (source_.attributes(item) == unlistedAttributes()) {
        throw SystemCallError("list the attributes of", source_.path(item), E2BIG);
    }
    applyMetadata(target, source_, item, update_.owners, update_.attributeRoom);
}

FileDescriptor TreeUpdater::openSource(std::uint32_t item, Places& places) const {
    const int folder = places.source.open(source_.items[item].parent);
    auto file =
        folder < 0 ? FileDescriptor() : openForReading(folder, std::string(source_.name(item)).c_str());
    if (!file && !isGone(errno)) {
        throw SystemCallError("open", source_.path(item));
    }
    struct stat status {};
    if (file && (::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode))) {
        file.reset();
    }
    return file;
}

FileDescriptor TreeUpdater::makeFile(std::uint32_t item, Places& places) {
    const int folder = targetFolder(places.target, source_.items[item].parent);
    auto made =
        openItem(folder, std::string(source_.name(item)).c_str(), O_WRONLY | O_CREAT | O_EXCL, ownerOnly);
    if (!made) {
        failToMake(source_.path(item));
    }
    unfinished_[item] = 1;
    return made;
}

void TreeUpdater::leaveOut(std::uint32_t item, Places& places) {
    gone_[item] = 1;
    const int folder = targetFolder(places.target, source_.items[item].parent);
    if (::unlinkat(folder, std::string(source_.name(item)).c_str(), 0) != 0 && errno != ENOENT) {
        throw SystemCallError("remove", source_.path(item));
    }
}

void TreeUpdater::makeSpecial(std::uint32_t item, Places& places) {
    const auto& special = source_.items[item];
    const int folder = targetFolder(places.target, special.parent);
    const std::string name(source_.name(item));
    const int result =
        special.type == ItemType::link
            ? ::symlinkat(std::string(source_.linkTarget(item)).c_str(), folder, name.c_str())
            : ::mknodat(folder, name.c_str(), kindOf(special.type) | ownerOnly, special.device);
    if (result != 0) {
        failToMake(source_.path(item));
    }
}

void TreeUpdater::makeLinks() {
    FolderCursor from(update_.target, source_);
    FolderCursor to(update_.target, source_);
    for (std::uint32_t item = 1; item < source_.items.size(); ++item) {
        const auto original = plan_.linkedTo[item];
        if (plan_.steps[item] != UpdateStep::link || gone_[original] != 0
            || gone_[source_.items[item].parent] != 0) {
            continue;
        }
        if (::linkat(targetFolder(from, source_.items[original].parent),
                     std::string(source_.name(original)).c_str(),
                     targetFolder(to, source_.items[item].parent), std::string(source_.name(item)).c_str(), 0)
            != 0) {
            failToMake(source_.path(item));
        }
    }
}

void TreeUpdater::finishFolders() {
    FolderCursor cursor(update_.target, source_);
    const auto count = static_cast<std::uint32_t>(source_.items.size());
    for (std::uint32_t item = count; item-- > 0;) {
        const bool isDue = source_.items[item].type == ItemType::folder && gone_[item] == 0
                           && (plan_.touched[item] || plan_.steps[item] != UpdateStep::nothing);
        if (!isDue || (item == 0 && update_.rootMetadata == RootMetadata::leave)) {
            continue;
        }
        apply(targetFolder(cursor, item), item);
    }
}

int TreeUpdater::targetFolder(FolderCursor& cursor, std::uint32_t folder) const {
    const int descriptor = cursor.open(folder);
    if (descriptor < 0) {
        throw SystemCallError("open the folder", source_.path(folder));
    }
    return descriptor;
}

FileDescriptor TreeUpdater::openTarget(int folder, std::uint32_t item, int flags) const {
    const std::string name(source_.name(item));
    auto opened = openItem(folder, name.c_str(), flags);
    if (!opened && errno == EACCES && openToOwner(folder, name.c_str())) {
        opened = openItem(folder, name.c_str(), flags);
    }
    struct stat status {};
    if (!opened || ::fstatat(opened.get(), "", &status, AT_EMPTY_PATH) != 0) {
        throw SystemCallError("open", source_.path(item));
    }
    if ((status.st_mode & S_IFMT) != kindOf(source_.items[item].type)) {
        throw SystemCallError("open", source_.path(item), ESTALE);
    }
    return opened;
}

} // namespace ramdisk
