#include "RamDiskInfrastructure/MacTools/HDIUtilImageTool.h"

#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskInfrastructure/Archive/FileIdentity.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/MacTools/VolumeContents.h"
#include "RamDiskInfrastructure/Stores/FlushToDisk.h"

#include <fmt/format.h>

#include <algorithm>
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
        auto status = VolumeContents(mountPoint_).status();
        const bool isUnchanged = status_ == status;
        status_ = std::move(status);
        return isUnchanged ? Status::unchanged : Status::changed;
    }
    [[nodiscard]] bool isPresent() const override { return tool_.ports_.volumeAt(mountPoint_) == volume_; }
    [[nodiscard]] bool isUpToDate(const SaveRequest& /*request*/) override {
        // Dates do not tell: a file changed through a shared mapping may keep its own.
        return false;
    }
    [[nodiscard]] std::unique_ptr<PartialImage> begin(const std::filesystem::path& partial,
                                                      const SaveRequest& request) override;
    [[nodiscard]] const std::filesystem::path& mountPoint() const noexcept { return mountPoint_; }

private:
    HDIUtilImageTool& tool_;
    std::filesystem::path mountPoint_;
    MountedVolume volume_;
    std::optional<VolumeContents::Status> status_;
};

class HDIUtilImageTool::SparseImage final : public PartialImage {
public:
    SparseImage(DiskSource& source, const HDIUtilImages& images, std::shared_ptr<CommandRunning> runner,
                std::filesystem::path file, AttachedImage attached)
        : source_(source),
          runner_(std::move(runner)),
          file_(std::move(file)),
          image_(images, std::move(attached)) {}

    void fill(const ProgressObserver& observer) override {
        const VolumeContents target(image_.mountPoint());
        try {
            target.removeAll();
            target.copyFrom(VolumeContents(source_.mountPoint()), *runner_, observer);
        } catch (const std::exception&) {
            // A file that vanishes while it is copied makes the tool fail.
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
    std::shared_ptr<CommandRunning> runner_;
    std::filesystem::path file_;
    OpenImage image_;
};

std::unique_ptr<PartialImage> HDIUtilImageTool::DiskSource::begin(const std::filesystem::path& partial,
                                                                  const SaveRequest& request) {
    const auto* passphrase = request.protection.passphrase();
    const auto& images = tool_.images_;
    images.create(partial, request.disk.capacity, request.disk.name, passphrase);
    ::chmod(partial.c_str(), S_IRUSR | S_IWUSR);
    auto image =
        std::make_unique<SparseImage>(*this, images, tool_.ports_.runner, partial,
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
        throw RamDiskError(RamDiskError::ImageUnreadable{});
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
