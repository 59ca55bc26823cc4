#include "RamDiskInfrastructure/Linux/SavedContents/LoopRestore.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskInfrastructure/Archive/FileIdentity.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/Linux/Host/ProcSystemMemoryProvider.h"
#include "RamDiskInfrastructure/Linux/SavedContents/DamagedFiles.h"
#include "RamDiskInfrastructure/Linux/Volumes/LoopVolumeRoot.h"
#include "RamDiskInfrastructure/Trees/ItemMetadata.h"
#include "RamDiskInfrastructure/Trees/ParallelJobs.h"
#include "RamDiskInfrastructure/Trees/TreeContents.h"
#include "RamDiskInfrastructure/Trees/TreeUpdate.h"

#include <fmt/format.h>

#include <utility>

#include <linux/magic.h>
#include <sys/statvfs.h>
#include <sys/sysinfo.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace ramdisk {

namespace {

/// Enough for the file system's own blocks and a manifest.
constexpr auto firstReadAhead = ByteCount::of(32, ByteCount::Unit::mebibyte);

bool isDamage(const SystemCallError& error) {
    const int number = error.code().value();
    return number == EIO || number == EUCLEAN || number == EBADMSG;
}

bool isLackOfRoom(const SystemCallError& error) {
    return error.code().value() == ENOSPC || error.code().value() == EDQUOT;
}

/// Whether most of what is to be copied lies in files that are copied in parts, past the page cache: then
/// reading the image ahead into that cache only costs memory, and the time to find it. Small files gain from
/// it.
bool isMostlyLarge(const TreeManifest::Contents& tree) {
    constexpr std::uint64_t bytesWorthAFile = 4U << 20U;
    std::uint64_t largeBytes = 0;
    std::uint64_t smallFiles = 0;
    for (std::uint32_t item = 0; item < tree.items.size(); ++item) {
        const bool isLarge = tree.items[item].size > largestWholeFile;
        largeBytes += isLarge ? tree.dataSize(item) : 0;
        smallFiles += !isLarge && tree.hasOwnContents(item) ? 1 : 0;
    }
    return smallFiles < largeBytes / bytesWorthAFile;
}

/// The disk keeps what is its own: its mark and, if it was made so, that nobody else may open it.
void keepDisksOwn(TreeManifest::Contents& saved, VolumeAccess access) {
    auto attributes = saved.attributes(0);
    leaveOutVolumeMark(attributes);
    // Other items may share the root's set.
    saved.items.front().attributes = static_cast<std::uint32_t>(saved.attributeSets.size());
    saved.attributeSets.push_back(std::move(attributes));
    if (access == VolumeAccess::onlyMe) {
        auto& root = saved.items.front();
        root.mode = static_cast<std::uint16_t>(root.mode & ~077U);
    }
}

/// Whether so much memory lies idle that no pages must be freed, nor moved together, to make huge ones: that
/// would take longer than they save.
bool isMemoryIdle(std::uint64_t bytes) {
    struct sysinfo machine {};
    return ::sysinfo(&machine) == 0 && std::uint64_t{machine.freeram} * machine.mem_unit >= bytes + bytes / 8;
}

} // namespace

RestoreRoom::RestoreRoom(const MountedDisk& disk, ByteCount capacity, std::filesystem::path sys)
    : root_(disk.root()),
      sys_(std::move(sys)),
      clusters_(LoopVolumeRoot(root_).clustersBeyond(sys_, capacity)) {
    if (clusters_ > 0) {
        LoopVolumeRoot(root_).keepBackClusters(sys_, 0);
    }
}

RestoreRoom::~RestoreRoom() {
    struct statvfs volume {};
    if (clusters_ == 0) {
        return;
    }
    // What is not on the device yet is still looking for its room.
    if (fstatvfs(root_.get(), &volume) == 0 && volume.f_bfree < clusters_ + clusters_ / 16) {
        trace("restore", "the disk is full: its files take room that only a restore may use");
        static_cast<void>(syncfs(root_.get()));
    }
    try {
        LoopVolumeRoot(root_).keepBackClusters(sys_, clusters_);
    } catch (const std::exception&) {
        traceCaught("restore", "the disk can hold more than its size from now on");
    }
}

ByteCount readAheadLimit(const LinuxHost& host) {
    return {ProcSystemMemoryProvider(host.proc, host.sys).read().available.bytes / 4};
}

SavedImageTool::Closing LoopRestore::perform(const ProgressObserver& observer) const {
    const auto disk = MountedDisk::open(request_.disk, host_);
    // Its folders could neither be filled nor removed.
    if (const auto inner = disk.mountBelow(host_)) {
        throw RamDiskError(RamDiskError::ContentsTransferFailed{fmt::format(
            "another volume is mounted on it, at “{}”. Unmount that one first.", inner->string())});
    }
    try {
        return putBack(disk, observer);
    } catch (const RamDiskError& error) {
        if (std::holds_alternative<RamDiskError::ImageUnreadable>(error.value())) {
            keepUnreadable();
        }
        throw;
    }
}

/// The user may decide for other files than these. That is no reason to give up what may be rescued.
void LoopRestore::keepUnreadable() const noexcept {
    try {
        if (FileIdentity::of(request_.image)) {
            static_cast<void>(DamagedFiles::keepImage(request_));
        }
    } catch (const std::exception&) {
        traceCaught("restore", "a copy that cannot be read gets no name of its own");
    }
}

SavedImageTool::Closing LoopRestore::putBack(const MountedDisk& disk,
                                             const ProgressObserver& observer) const {
    auto image = OpenImage::open(ImageFile::open(request_.image, LoopAccess::readOnly, host_),
                                 LoopAccess::readOnly, request_.protection, host_);
    try {
        copy(image, disk, observer);
    } catch (const std::exception& error) {
        if (!disk.isPresent()) {
            throw RamDiskError(RamDiskError::DiskEjected{});
        }
        if (!image.file().isStillThere()) {
            throw RamDiskError(RamDiskError::ImageEjected{});
        }
        if (dynamic_cast<const RamDiskError*>(&error) != nullptr) {
            throw;
        }
        const auto* failed = dynamic_cast<const SystemCallError*>(&error);
        if (failed != nullptr && isDamage(*failed)) {
            throw RamDiskError(RamDiskError::ImageUnreadable{error.what()});
        }
        if (failed != nullptr && isLackOfRoom(*failed) && couldHaveHadRoom(image, disk)) {
            throw CopyNeedsRoom(RamDiskError::ContentsTransferFailed{error.what()});
        }
        throw RamDiskError(RamDiskError::ContentsTransferFailed{error.what()});
    }
    if (!disk.isPresent()) {
        throw RamDiskError(RamDiskError::DiskEjected{});
    }
    const bool isClosed = image.close();
    image.file().dropCache();
    return isClosed ? SavedImageTool::Closing::closed : SavedImageTool::Closing::leftOpen;
}

bool LoopRestore::couldHaveHadRoom(const OpenImage& image, const MountedDisk& disk) const {
    struct statfs volume {};
    const auto origin = image.origin();
    return fstatfs(disk.root().get(), &volume) == 0 && volume.f_type == EXT4_SUPER_MAGIC && origin
           && origin->capacity <= request_.disk.capacity
           && LoopVolumeRoot(disk.root()).clustersBeyond(host_.sys, request_.disk.capacity) == 0;
}

void LoopRestore::copy(const OpenImage& image, const MountedDisk& disk,
                       const ProgressObserver& observer) const {
    // The rest follows when the manifest has told that it is worth it.
    std::optional<ReadAhead> reading(std::in_place, image.file().descriptor(), firstReadAhead);
    auto saved = image.writtenManifest();
    if (!saved) {
        throw RamDiskError(RamDiskError::ImageUnreadable{});
    }
    if (!image.isAsWritten()) {
        // Somebody has changed the image since it was saved: its files are what counts.
        reading.emplace(image.file().descriptor(), readAheadLimit(host_));
        saved = TreeManifest::scan(image.contents(), {});
    }
    reading.reset();
    if (isMostlyLarge(saved->contents())) {
        image.readDirectly();
    } else {
        reading.emplace(image.file().descriptor(), readAheadLimit(host_));
    }
    if (saved->firstNameClash() && disk.mergesNames()) {
        throw RamDiskError(RamDiskError::NamesMerged{});
    }
    const auto present = TreeManifest::scan(disk.root(), {});
    keepDisksOwn(saved->contents(), request_.disk.access);
    if (observer) {
        observer({0, saved->byteCount(), 0, saved->itemCount()});
    }
    const RestoreRoom room(disk, request_.disk.capacity, host_.sys);
    const auto extras = request_.mode == RestoreMode::fill ? Extras::keep : Extras::remove;
    TreeUpdate update{image.contents(), *saved, disk.root(), present, extras};
    update.pageCache = PageCache::bypass;
    update.flags = Flags::apply;
    if (isMemoryIdle(saved->byteCount())) {
        update.hugePages = disk.hugePages(host_);
        if (update.hugePages == HugePages::none) {
            trace("restore", "no huge pages: the disk does not offer them");
        }
    } else {
        trace("restore", "no huge pages: too little memory lies idle");
    }
    std::vector<std::uint32_t> differing;
    update.differing = &differing;
    update.perform(observer);
    // Files that somebody else changed in the image are read for what they are.
    if (image.isAsWritten() && !differing.empty()) {
        DamagedFiles damaged(request_, *saved, std::move(differing), host_);
        damaged.keepImage();
        damaged.repairFromOtherCopies(disk.root());
        damaged.requireRepaired();
    }
}

} // namespace ramdisk
