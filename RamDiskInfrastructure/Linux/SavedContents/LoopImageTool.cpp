#include "RamDiskInfrastructure/Linux/SavedContents/LoopImageTool.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskInfrastructure/Archive/SavedCopyNames.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/Linux/Host/MountTable.h"
#include "RamDiskInfrastructure/Linux/SavedContents/LoopPartialImage.h"
#include "RamDiskInfrastructure/Linux/SavedContents/LoopRestore.h"
#include "RamDiskInfrastructure/Stores/StoreFiles.h"
#include "RamDiskInfrastructure/Trees/ItemMetadata.h"
#include "RamDiskInfrastructure/Trees/TreeComparison.h"
#include "RamDiskInfrastructure/Trees/TreeContents.h"

#include <fmt/format.h>

#include <algorithm>

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace ramdisk {

namespace {

constexpr unsigned loopMajor = 7;

/// What can be told of an image that somebody else has open: its mount tells, wherever there is one.
SavedVolume describeElsewhere(const ImageFile& file, const std::vector<unsigned>& loops,
                              const LinuxHost& host) {
    const auto superblock = ExtSuperblock::read(file.descriptor());
    if (!superblock) {
        throw RamDiskError(RamDiskError::ImageUnreadable{});
    }
    const auto table = MountTable::read(host.proc);
    for (const auto& entry : table.entries()) {
        for (const auto loop : loops) {
            struct statvfs status {};
            if (entry.device == makedev(loopMajor, loop) && statvfs(entry.mountPoint.c_str(), &status) == 0) {
                return {superblock->label,
                        superblock->size,
                        {std::uint64_t{status.f_blocks - status.f_bfree} * status.f_frsize},
                        superblock->canFoldCase,
                        entry.mountPoint};
            }
        }
    }
    throw RamDiskError(RamDiskError::ImageOpenAlready{});
}

/// Makes dates those that the image's file system can hold: from 1901 to 2446. The manifest itself holds any.
void holdDates(TreeManifest::Contents& tree) {
    constexpr time_t earliest = -(time_t{1} << 31);
    constexpr time_t latest = (time_t{1} << 34) + earliest - 1;
    for (auto& item : tree.items) {
        const auto held = std::clamp(item.modified.tv_sec, earliest, latest);
        // The kernel drops the fraction of a date that it cannot hold, and of the last that it can.
        if (held != item.modified.tv_sec || held == earliest || held == latest) {
            item.modified = {held, 0};
        }
    }
}

/// Leaves out the attributes that the image does not hold, of items that have too many. The manifest itself
/// holds them all.
void holdAttributes(TreeManifest::Contents& said, const TreeManifest::Contents& held) {
    const auto setCount = said.attributeSets.size();
    if (std::all_of(said.attributeSets.begin(), said.attributeSets.end(), fitIntoBlock)) {
        return;
    }
    const auto pairing = pairItems(said, held);
    for (std::uint32_t item = 0; item < said.items.size(); ++item) {
        const auto other = pairing.ofSource[item];
        const auto set = said.items[item].attributes;
        if (other == noItem || set >= setCount || fitIntoBlock(said.attributeSets[set])) {
            continue;
        }
        auto attributes = said.attributeSets[set];
        const auto& present = held.attributes(other);
        std::erase_if(attributes, [&](const auto& attribute) {
            return std::none_of(present.begin(), present.end(),
                                [&](const auto& one) { return one.name == attribute.name; });
        });
        said.items[item].attributes = static_cast<std::uint32_t>(said.attributeSets.size());
        said.attributeSets.push_back(std::move(attributes));
    }
}

/// The items of an image have no flags: they would be in the way of the next save. The manifest has them.
void holdFlags(TreeManifest::Contents& tree) {
    for (auto& item : tree.items) {
        item.flags = 0;
    }
}

class LoopSource final : public MountedSource {
public:
    LoopSource(MountedDisk disk, LatestCopy latest, const LinuxHost& host,
               std::shared_ptr<CommandRunning> runner)
        : MountedSource(std::move(disk), std::move(latest)),
          host_(host),
          runner_(std::move(runner)) {}

    [[nodiscard]] bool isUpToDate(const SaveRequest& request) override {
        const auto& held = latest().description();
        return held && held->origin == ImageOrigin{request.disk.name, request.disk.capacity}
               && !held->manifest.firstDifference(manifest());
    }
    [[nodiscard]] std::unique_ptr<PartialImage> begin(const std::filesystem::path& partial,
                                                      const SaveRequest& request) override {
        // The latest can be a start once it is closed.
        const auto& held = latest().description();
        if (const auto lost = held ? unsavable().firstIn(held->manifest) : std::nullopt) {
            throw RamDiskError(RamDiskError::ContentsTransferFailed{
                fmt::format("a saved copy cannot hold “{}” as it is now, and the latest copy holds it as it "
                            "was. Remove it, or make it smaller or give it fewer names or attributes.",
                            *lost)});
        }
        return std::make_unique<LoopPartialImage>(partial, request, *this, host_, runner_);
    }

private:
    const LinuxHost& host_;
    std::shared_ptr<CommandRunning> runner_;
};

} // namespace

LoopImageTool::LoopImageTool(LinuxHost host, std::shared_ptr<CommandRunning> runner)
    : host_(std::move(host)),
      runner_(std::move(runner)) {}

void LoopImageTool::requireSupport(const RamDisk& disk) const {
    static_cast<void>(MountedDisk::open(disk, host_));
}

std::unique_ptr<SaveSource> LoopImageTool::openSource(const SaveRequest& request) {
    return std::make_unique<LoopSource>(MountedDisk::open(request.disk, host_),
                                        LatestCopy(request.files.latest, request.protection, host_), host_,
                                        runner_);
}

void LoopImageTool::verify(const std::filesystem::path& path, const VolumeProtection& protection) {
    auto file = ImageFile::open(path, LoopAccess::readOnly, host_);
    file.dropCache();
    const auto image = OpenImage::open(std::move(file), LoopAccess::readOnly, protection, host_);
    auto said = image.manifest();
    if (!said) {
        throw RamDiskError(RamDiskError::ContentsTransferFailed{"the copy does not tell what it holds."});
    }
    holdDates(said->contents());
    holdFlags(said->contents());
    const ReadAhead reading(image.file().descriptor(), readAheadLimit(host_));
    const auto held = TreeManifest::scan(image.contents(), {});
    holdAttributes(said->contents(), held.contents());
    if (const auto difference = held.firstDifference(*said)) {
        throw RamDiskError(RamDiskError::ContentsTransferFailed{
            fmt::format("the copy differs from what was saved: {}", *difference)});
    }
}

void LoopImageTool::retire(const std::filesystem::path& image, const SavedCopyFiles& files) noexcept {
    try {
        const auto file = ImageFile::open(image, LoopAccess::readOnly, host_);
        const auto spare = SavedCopyNames{files}.spare();
        // A file with another name is a copy still: only this name is given up.
        if (file.hasOneName() && !file.canBeCloned() && stored::rename(image, spare) == 0) {
            return;
        }
    } catch (const std::exception&) {
        // What cannot be opened is of no use as a start.
        traceCaught("save", "a copy to give up is not kept as a spare");
    }
    trace("save", "giving up the copy {}", image.native());
    try {
        if (stored::remove(image) != 0) {
            traceRefused("save", "removing a copy", "it stays");
        }
    } catch (const std::exception&) {
        traceCaught("save", "a copy to give up stays");
    }
}

SavedImageTool::Closing LoopImageTool::restore(const RestoreRequest& request,
                                               const ProgressObserver& observer) {
    return LoopRestore(request, host_).perform(observer);
}

SavedVolume LoopImageTool::describe(const std::filesystem::path& path, const VolumeProtection& protection) {
    auto file = ImageFile::open(path, LoopAccess::readOnly, host_);
    if (const auto loops = file.loops(host_.sys); !loops.empty()) {
        return describeElsewhere(file, loops, host_);
    }
    auto image = OpenImage::open(std::move(file), LoopAccess::readOnly, protection, host_);
    const auto origin = image.origin();
    const auto& superblock = image.superblock();
    return {origin ? origin->name : superblock.label, origin ? origin->capacity : superblock.size,
            image.used(), superblock.canFoldCase, std::nullopt};
}

} // namespace ramdisk
