#include "RamDiskInfrastructure/Linux/SavedContents/LoopPartialImage.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskCore/Values/ByteCountFormat.h"
#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskInfrastructure/Archive/SavedCopyNames.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/Stores/StoreFiles.h"
#include "RamDiskInfrastructure/Trees/TreeContents.h"
#include "RamDiskInfrastructure/Trees/TreeUpdate.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace ramdisk {

namespace {

/// Below this the system disk counts as full when writing to it failed.
constexpr auto hardlyAnyRoom = ByteCount::of(1, ByteCount::Unit::mebibyte);
/// What the file system of an image keeps of an item besides its contents, at the least.
constexpr std::uint64_t bytesPerItem = 256;

std::string onlyLeft(ByteCount room) {
    return fmt::format("the system disk has only {} left.", format(room));
}

} // namespace

LoopPartialImage::LoopPartialImage(std::filesystem::path partial, const SaveRequest& request,
                                   MountedSource& source, const LinuxHost& host,
                                   std::shared_ptr<CommandRunning> runner)
    : source_(source),
      partial_(std::move(partial)),
      request_(request),
      host_(host),
      runner_(std::move(runner)) {
    const auto& wanted = source.manifest();
    geometry_ = geometryFor(wanted);
    try {
        image_ = startFromEarlier(wanted);
        if (!image_) {
            image_ = startFromNothing(geometry_, wanted);
        }
    } catch (const RamDiskError&) {
        throw;
    } catch (const std::exception& error) {
        throwTransferFailure(error);
    }
}

ImageGeometry LoopPartialImage::geometryFor(const TreeManifest& wanted) const {
    return ImageGeometry::of(request_.disk.capacity, wanted.itemCount(), wanted.byteCount());
}

std::optional<ImageFile> LoopPartialImage::takeEarlierFile() {
    try {
        const auto latest = ImageFile::open(request_.files.latest, LoopAccess::readOnly, host_);
        latest.requireClosed(host_.sys);
        // What has a second name was found to be damaged.
        if (auto clone = !latest.hasOneName() ? std::nullopt : ImageFile::clone(latest, partial_, host_)) {
            return clone;
        }
    } catch (const RamDiskError&) {
        // There is no latest copy, or it cannot be a start.
        traceCaught("save", "the latest copy is no start for the new one");
    }
    const auto spare = SavedCopyNames{request_.files}.spare();
    try {
        const auto file = ImageFile::open(spare, LoopAccess::readWrite, host_);
        file.requireClosed(host_.sys);
        if (file.hasOneName() && stored::rename(spare, partial_) == 0) {
            return ImageFile::open(partial_, LoopAccess::readWrite, host_);
        }
    } catch (const RamDiskError&) {
        // There is no spare, or it cannot be a start.
        traceCaught("save", "there is no spare image to start from");
    }
    static_cast<void>(stored::remove(spare));
    return std::nullopt;
}

std::optional<OpenImage> LoopPartialImage::startFromEarlier(const TreeManifest& wanted) {
    auto file = takeEarlierFile();
    if (!file) {
        return std::nullopt;
    }
    std::optional<std::uint64_t> present;
    try {
        const auto superblock = ExtSuperblock::read(file->descriptor());
        if (superblock && superblock->size >= geometry_.size) {
            auto image = OpenImage::checkAndOpen(std::move(*file), request_.protection, host_, *runner_);
            held_ = image.manifest();
            if (held_) {
                requireRoom(wanted, ByteCount{held_->byteCount() + held_->itemCount() * bytesPerItem});
                return image;
            }
            static_cast<void>(image.close());
        }
    } catch (const RamDiskError& error) {
        if (std::holds_alternative<RamDiskError::ContentsTransferFailed>(error.value())) {
            throw;
        }
        traceCaught("save", "the earlier image is no start for the new one");
    } catch (const std::exception&) {
        // Whatever is wrong with the earlier image, a new one is not made from it.
        traceCaught("save", "the earlier image is no start for the new one");
    }
    static_cast<void>(stored::remove(partial_));
    return std::nullopt;
}

OpenImage LoopPartialImage::startFromNothing(const ImageGeometry& geometry, const TreeManifest& wanted) {
    trace("save", "starting with an empty image of {} bytes", geometry.size.bytes);
    requireRoom(wanted, {});
    return OpenImage::make(ImageFile::create(partial_, geometry.size, host_), geometry, request_.disk.name,
                           request_.protection, host_, *runner_);
}

void LoopPartialImage::requireRoom(const TreeManifest& wanted, ByteCount present) const {
    const auto needed = wanted.byteCount() + wanted.itemCount() * bytesPerItem;
    const auto room = roomBeside(partial_);
    if (needed > present.bytes && needed - present.bytes > room.bytes) {
        throw RamDiskError(RamDiskError::ContentsTransferFailed{onlyLeft(room)});
    }
}

void LoopPartialImage::fill(const ProgressObserver& observer) {
    try {
        if (finishing_.valid()) {
            finishing_.get();
            if (isOfNoUse_) {
                static_cast<void>(stored::remove(partial_));
                image_ = startFromNothing(geometry_, source_.manifest());
            } else {
                reopen();
            }
        }
        constexpr int mostDoublings = 8;
        for (int doublings = 0;; ++doublings) {
            try {
                fillOnce(observer);
                break;
            } catch (const SystemCallError& error) {
                const int number = error.code().value();
                if ((number != ENOSPC && number != EDQUOT) || doublings == mostDoublings) {
                    throw;
                }
            }
            // The image is full, not the system disk: what is written to that one fails later, in `finish`.
            trace("save", "the image is too small and is made anew, larger");
            image_.reset();
            held_.reset();
            static_cast<void>(stored::remove(partial_));
            const auto& wanted = source_.manifest();
            geometry_ = std::max(geometry_.doubled(), geometryFor(wanted));
            image_ = startFromNothing(geometry_, wanted);
        }
        // Without a thread it is finished when that is asked for.
        finishing_ = std::async(std::launch::async | std::launch::deferred, [this] { finish(); });
    } catch (const RamDiskError&) {
        throw;
    } catch (const std::exception& error) {
        throwTransferFailure(error);
    }
}

void LoopPartialImage::reopen() {
    image_ = OpenImage::checkAndOpen(ImageFile::open(partial_, LoopAccess::readWrite, host_),
                                     request_.protection, host_, *runner_);
    held_ = image_->manifest();
    if (!held_) {
        throw SystemCallError("read back", partial_, EIO);
    }
}

void LoopPartialImage::fillOnce(const ProgressObserver& observer) {
    // Of the earlier save, or of the round before.
    const auto held = std::exchange(held_, std::nullopt).value_or(TreeManifest());
    image_->undescribe();
    TreeUpdate update{source_.root(), source_.manifest(), image_->contents(), held, Extras::remove};
    update.pageCache = PageCache::bypass;
    // The manifest has them all.
    update.attributeRoom = AttributeRoom::whereThereIsRoom;
    std::vector<std::uint32_t> differing;
    update.differing = &differing;
    update.perform(observer);
    if (!differing.empty()) {
        trace("save", "{} files changed while they were copied, “{}” among them", differing.size(),
              source_.manifest().contents().path(differing.front()));
        source_.distrust();
    }
    // It holds something that nobody has noted, so the next round does not start from it.
    isOfNoUse_ = !differing.empty();
    image_->describe(source_.manifest(), {request_.disk.name, request_.disk.capacity});
}

void LoopPartialImage::finish() {
    image_->flush();
    if (!image_->close()) {
        throw RamDiskError(RamDiskError::ContentsTransferFailed{"the new copy could not be closed."});
    }
    image_->file().flush();
    const auto superblock = ExtSuperblock::read(image_->file().descriptor());
    if (!superblock || !superblock->isClean) {
        throw SystemCallError("write to", partial_, EIO);
    }
    image_.reset();
}

void LoopPartialImage::close() {
    try {
        finishing_.get();
    } catch (const RamDiskError&) {
        throw;
    } catch (const std::exception& error) {
        throwTransferFailure(error);
    }
}

void LoopPartialImage::throwTransferFailure(const std::exception& cause) const {
    const auto room = roomBeside(partial_);
    throw RamDiskError(
        RamDiskError::ContentsTransferFailed{room < hardlyAnyRoom ? onlyLeft(room) : cause.what()});
}

} // namespace ramdisk
