#include "RamDiskInfrastructure/MacTools/HDIUtilImageTool.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskInfrastructure/Archive/FileIdentity.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/MacTools/ImageManifest.h"
#include "RamDiskInfrastructure/MacTools/VolumeContents.h"
#include "RamDiskInfrastructure/Stores/FlushToDisk.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ramdisk {

/// Closes the image with this value unless that was done before.
class HDIUtilImageTool::OpenImage {
public:
    OpenImage(const HDIUtilImages& images, AttachedImage attached)
        : images_(images),
          attached_(std::move(attached)) {}
    OpenImage(const OpenImage&) = delete;
    OpenImage& operator=(const OpenImage&) = delete;
    ~OpenImage() {
        if (!isClosed_ && images_.close(attached_, Force::no) == HDIUtilImages::Closing::leftOpen) {
            static_cast<void>(images_.close(attached_, Force::yes));
        }
    }

    [[nodiscard]] const std::filesystem::path& mountPoint() const noexcept { return attached_.mountPoint; }
    [[nodiscard]] bool isMounted() const { return images_.isMounted(attached_); }
    /// Not tried again once it failed or worked.
    [[nodiscard]] HDIUtilImages::Closing close() {
        isClosed_ = true;
        return images_.close(attached_, Force::no);
    }
    void closeByForceAtTheEnd() noexcept { isClosed_ = false; }

private:
    const HDIUtilImages& images_;
    AttachedImage attached_;
    bool isClosed_ = false;
};

class HDIUtilImageTool::DiskSource final : public SaveSource {
public:
    DiskSource(HDIUtilImageTool& tool, std::filesystem::path mountPoint, MountedVolume volume)
        : tool_(tool),
          mountPoint_(std::move(mountPoint)),
          volume_(std::move(volume)) {}

    Status takeStatus(const ProgressObserver& /*observer*/) override {
        const auto now = std::chrono::system_clock::now();
        auto status = VolumeContents(mountPoint_).status();
        const bool isUnchanged = status_ == status;
        status_ = std::move(status);
        takenAt_ = now;
        return isUnchanged ? Status::unchanged : Status::changed;
    }
    [[nodiscard]] bool isPresent() const override { return tool_.ports_.volumeAt(mountPoint_) == volume_; }
    [[nodiscard]] bool isUpToDate(const SaveRequest& request) override;
    [[nodiscard]] std::unique_ptr<PartialImage> begin(const std::filesystem::path& partial,
                                                      const SaveRequest& request) override;
    [[nodiscard]] const std::filesystem::path& mountPoint() const noexcept { return mountPoint_; }
    /// Of the status that was taken last.
    [[nodiscard]] std::optional<ImageManifest> manifestFor(const RamDisk& disk) const {
        return status_ ? ImageManifest::of(disk, *status_, takenAt_) : std::nullopt;
    }

private:
    [[nodiscard]] bool isIn(const std::filesystem::path& image, const SaveRequest& request,
                            const ImageManifest& manifest) const;

    HDIUtilImageTool& tool_;
    std::filesystem::path mountPoint_;
    MountedVolume volume_;
    std::optional<VolumeContents::Status> status_;
    std::chrono::sys_time<std::chrono::nanoseconds> takenAt_;
};

class HDIUtilImageTool::SparseImage final : public PartialImage {
public:
    SparseImage(DiskSource& source, RamDisk disk, const HDIUtilImages& images,
                std::shared_ptr<CommandRunning> runner, std::filesystem::path file, AttachedImage attached)
        : source_(source),
          disk_(std::move(disk)),
          runner_(std::move(runner)),
          file_(std::move(file)),
          image_(images, std::move(attached)) {}

    void fill(const ProgressObserver& observer) override {
        const VolumeContents target(image_.mountPoint());
        try {
            target.removeAll();
            target.copyFrom(VolumeContents(source_.mountPoint()), *runner_, observer);
            if (const auto manifest = source_.manifestFor(disk_)) {
                manifest->writeTo(image_.mountPoint());
            }
        } catch (const std::exception&) {
            // A file that vanishes while it is copied makes the tool fail.
            traceCaught("save", "copying failed");
            if (source_.isPresent() && source_.takeStatus({}) == SaveSource::Status::changed) {
                throw RamDiskError(RamDiskError::FilesKeptChanging{});
            }
            throw;
        }
    }

    void close() override {
        if (image_.close() == HDIUtilImages::Closing::leftOpen) {
            image_.closeByForceAtTheEnd();
            throw RamDiskError(RamDiskError::ImageLeftOpen{});
        }
        const FileDescriptor file(::open(file_.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
        const int error = file ? flushToDisk(file) : errno;
        if (error != 0) {
            throw SystemCallError("write", file_, error);
        }
    }

private:
    DiskSource& source_;
    RamDisk disk_;
    std::shared_ptr<CommandRunning> runner_;
    std::filesystem::path file_;
    OpenImage image_;
};

bool HDIUtilImageTool::DiskSource::isUpToDate(const SaveRequest& request) {
    const auto& latest = request.files.latest;
    const auto manifest = manifestFor(request.disk);
    try {
        if (!manifest || !isIn(latest, request, *manifest)) {
            return false;
        }
    } catch (const std::exception&) {
        traceCaught("save", "the latest copy does not tell what it holds");
        return false;
    }
    if (request.verification == Verification::yes) {
        const std::lock_guard guard(tool_.mutex_);
        tool_.filledFrom_[latest] = mountPoint_;
    }
    return true;
}

/// Dates tell of everything but what is written through a shared mapping, so the contents are compared too.
bool HDIUtilImageTool::DiskSource::isIn(const std::filesystem::path& image, const SaveRequest& request,
                                        const ImageManifest& manifest) const {
    const auto* passphrase = request.protection.passphrase();
    if (tool_.images_.isEncrypted(image) != (passphrase != nullptr)
        || (tool_.images_.openState(image) && !tool_.images_.closeAbandoned(image))) {
        return false;
    }
    OpenImage open(tool_.images_, tool_.images_.open(image, HDIUtilImages::Access::readOnly, passphrase));
    const bool isSame = manifest.isOn(open.mountPoint())
                        && !VolumeContents(mountPoint_).firstDifference(VolumeContents(open.mountPoint()))
                        && open.isMounted();
    if (open.close() == HDIUtilImages::Closing::leftOpen) {
        open.closeByForceAtTheEnd();
    }
    return isSame;
}

std::unique_ptr<PartialImage> HDIUtilImageTool::DiskSource::begin(const std::filesystem::path& partial,
                                                                  const SaveRequest& request) {
    const auto* passphrase = request.protection.passphrase();
    const auto& images = tool_.images_;
    images.create(partial, request.disk.capacity, request.disk.name, passphrase);
    ::chmod(partial.c_str(), S_IRUSR | S_IWUSR);
    auto image =
        std::make_unique<SparseImage>(*this, request.disk, images, tool_.ports_.runner, partial,
                                      images.open(partial, HDIUtilImages::Access::readWrite, passphrase));
    if (request.verification == Verification::yes) {
        const std::lock_guard guard(tool_.mutex_);
        tool_.filledFrom_[partial] = mountPoint_;
    }
    return image;
}

HDIUtilImageTool::HDIUtilImageTool(HDIUtilImages::Ports ports,
                                   std::shared_ptr<const VolumeStatisticsReading> statistics)
    : ports_(std::move(ports)),
      images_(ports_),
      statistics_(std::move(statistics)) {}

std::unique_ptr<SaveSource> HDIUtilImageTool::openSource(const SaveRequest& request) {
    const auto volume = request.disk.mountPoint ? ports_.volumeAt(*request.disk.mountPoint) : std::nullopt;
    if (!volume) {
        throw RamDiskError(RamDiskError::DiskEjected{});
    }
    return std::make_unique<DiskSource>(*this, *request.disk.mountPoint, *volume);
}

void HDIUtilImageTool::verify(const std::filesystem::path& image, const VolumeProtection& protection) {
    std::filesystem::path source;
    {
        const std::lock_guard guard(mutex_);
        const auto found = filledFrom_.find(image);
        if (found == filledFrom_.end()) {
            throw RamDiskError(RamDiskError::ContentsTransferFailed{
                "There is nothing any more with which the copy could be compared."});
        }
        source = std::move(found->second);
        filledFrom_.erase(found);
    }
    const OpenImage open(images_,
                         images_.open(image, HDIUtilImages::Access::readOnly, protection.passphrase()));
    if (const auto difference = VolumeContents(source).firstDifference(VolumeContents(open.mountPoint()))) {
        throw RamDiskError(RamDiskError::ContentsTransferFailed{
            fmt::format("“{}” in the copy is not what it is on the disk.", difference->string())});
    }
}

void HDIUtilImageTool::retire(const std::filesystem::path& image, const SavedCopyFiles& /*files*/) noexcept {
    ::unlink(image.c_str());
}

void HDIUtilImageTool::abandon(const std::filesystem::path& partial) noexcept {
    images_.closeAbandoned(partial);
}

SavedImageTool::Closing HDIUtilImageTool::restore(const RestoreRequest& request,
                                                  const ProgressObserver& observer) {
    if (!request.disk.mountPoint) {
        throw RamDiskError(RamDiskError::NotMounted{request.disk.device});
    }
    if (!FileIdentity::of(request.image)) {
        throw RamDiskError(RamDiskError::ImageEjected{});
    }
    if (images_.openState(request.image) && !images_.closeAbandoned(request.image)) {
        throw RamDiskError(RamDiskError::ImageOpenAlready{});
    }
    const auto* passphrase = passphraseFor(request.image, request.protection,
                                           RamDiskError::SavedContentsKeyMissing{request.disk.name});
    OpenImage image(images_, images_.open(request.image, HDIUtilImages::Access::readOnly, passphrase));
    try {
        const VolumeContents saved(image.mountPoint());
        const VolumeContents disk(*request.disk.mountPoint);
        if (saved.hasNamesMergedOn(disk)) {
            throw RamDiskError(RamDiskError::NamesMerged{});
        }
        if (observer) {
            observer({});
        }
        if (request.mode == RestoreMode::replace) {
            disk.removeAll();
        }
        disk.copyFrom(saved, *ports_.runner, observer);
    } catch (const std::exception&) {
        traceCaught("restore", "copying failed");
        if (!image.isMounted()) {
            throw RamDiskError(RamDiskError::ImageEjected{});
        }
        throw;
    }
    if (!image.isMounted()) {
        // A volume that goes away may look empty rather than broken.
        throw RamDiskError(RamDiskError::ImageEjected{});
    }
    return image.close() == HDIUtilImages::Closing::closed ? Closing::closed : Closing::leftOpen;
}

SavedVolume HDIUtilImageTool::describe(const std::filesystem::path& image,
                                       const VolumeProtection& protection) {
    if (!FileIdentity::of(image)) {
        throw RamDiskError(RamDiskError::ImageEjected{});
    }
    std::optional<std::filesystem::path> openAt;
    if (const auto state = images_.openState(image)) {
        openAt = state->mountPoint();
        if (!openAt) {
            throw RamDiskError(RamDiskError::ImageOpenAlready{});
        }
    }
    std::optional<OpenImage> opened;
    if (!openAt) {
        opened.emplace(images_,
                       images_.open(image, HDIUtilImages::Access::readOnly,
                                    passphraseFor(image, protection, RamDiskError::IncorrectPassphrase{})));
    }
    const auto& mountPoint = openAt ? *openAt : opened->mountPoint();
    const auto statistics = statistics_->read(mountPoint);
    if (!statistics) {
        throw RamDiskError(RamDiskError::ImageUnreadable{"the size of its volume could not be read."});
    }
    return {.name = statistics->name.value_or(image.stem().string()),
            .capacity = statistics->total,
            .used =
                ByteCount{statistics->total.bytes - std::min(statistics->available, statistics->total).bytes},
            .mergesNames = VolumeContents(mountPoint).mergesNames(),
            .openAt = openAt};
}

const VolumePassphrase* HDIUtilImageTool::passphraseFor(const std::filesystem::path& image,
                                                        const VolumeProtection& protection,
                                                        const RamDiskError& missing) const {
    if (!images_.isEncrypted(image)) {
        return nullptr;
    }
    if (protection.passphrase() == nullptr) {
        throw missing;
    }
    return protection.passphrase();
}

} // namespace ramdisk
