#include "RamDiskInfrastructure/Linux/SavedContents/LoopRestore.h"

#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskInfrastructure/Linux/ProcSystemMemoryProvider.h"
#include "RamDiskInfrastructure/Linux/SavedContents/SavedRoot.h"
#include "RamDiskInfrastructure/Linux/SystemCallError.h"
#include "RamDiskInfrastructure/Linux/Trees/TreeUpdate.h"

namespace ramdisk {

namespace {

bool isDamage(const SystemCallError& error) {
    const int number = error.code().value();
    return number == EIO || number == EUCLEAN || number == EBADMSG;
}

} // namespace

ByteCount readAheadLimit(const LinuxHost& host) {
    return {ProcSystemMemoryProvider(host.proc, host.sys).read().available.bytes / 4};
}

SavedImageTool::Closing LoopRestore::perform(const ProgressObserver& observer) const {
    const auto disk = MountedDisk::open(request_.disk, host_);
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
            throw RamDiskError(RamDiskError::ImageUnreadable{});
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

void LoopRestore::copy(const OpenImage& image, const MountedDisk& disk,
                       const ProgressObserver& observer) const {
    // From here on, so that the manifest's own blocks come first.
    const ReadAhead reading(image.file().descriptor(), readAheadLimit(host_));
    // Somebody may have changed the image since it was saved: then its files are what counts.
    if (!image.writtenManifest()) {
        throw RamDiskError(RamDiskError::ImageUnreadable{});
    }
    auto saved = image.manifest();
    if (!saved) {
        saved = TreeManifest::scan(image.contents(), {});
    }
    if (saved->firstNameClash() && disk.mergesNames()) {
        throw RamDiskError(RamDiskError::NamesMerged{});
    }
    const auto present = TreeManifest::scan(disk.root(), {});
    keepDisksOwn(*saved, present, request_.disk.access);
    if (observer) {
        observer({0, saved->byteCount(), 0, saved->itemCount()});
    }
    const auto extras = request_.mode == RestoreMode::fill ? Extras::keep : Extras::remove;
    TreeUpdate{image.contents(), *saved, disk.root(), present, extras}.perform(observer);
}

} // namespace ramdisk
