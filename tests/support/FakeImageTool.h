#pragma once

#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskInfrastructure/Archive/SavedCopyNames.h"
#include "RamDiskInfrastructure/Archive/SavedImageTool.h"
#include "tests/support/Testing.h"

namespace ramdisk::test {

/// Images that are plain files: what the disk's only file holds, in brackets. An image without its closing
/// bracket was never closed.
class FakeImageTool final : public SavedImageTool {
public:
    int mostRounds = 2;
    /// Runs after each filling: what other programs do meanwhile.
    std::function<void()> meanwhile;
    Closing closing = Closing::closed;
    /// How a restore fails, where it is set: before it touches the disk, or in the middle.
    std::optional<RamDiskError> restoreFailure;
    bool failsHalfWay = false;
    std::optional<RestoreMode> lastMode;
    /// How many restores end half way since the disk has no room for what fitted onto its like.
    int lacksRoom = 0;

    static std::filesystem::path fileOn(const RamDisk& disk) { return *disk.mountPoint / "file"; }
    static std::string imageOf(const std::string& content) { return "[" + content + "]"; }

    int rounds() const noexcept override { return mostRounds; }

    std::unique_ptr<SaveSource> openSource(const SaveRequest& request) override {
        auto source = std::make_unique<Source>(fileOn(request.disk), meanwhile);
        if (!source->isPresent()) {
            throw RamDiskError(RamDiskError::DiskEjected{});
        }
        return source;
    }
    void verify(const std::filesystem::path& image, const VolumeProtection& /*protection*/) override {
        if (!readFile(image).ends_with(']')) {
            throw RamDiskError(RamDiskError::ContentsTransferFailed{"not whole"});
        }
    }
    void retire(const std::filesystem::path& image, const SavedCopyFiles& files) noexcept override {
        std::error_code ignored;
        std::filesystem::rename(image, SavedCopyNames{files}.spare(), ignored);
    }
    Closing restore(const RestoreRequest& request, const ProgressObserver& observer) override {
        const auto image = readFile(request.image);
        lastMode = request.mode;
        if (image.empty() || (restoreFailure && !failsHalfWay)) {
            throw restoreFailure.value_or(RamDiskError::ImageEjected{});
        }
        if (observer) {
            observer({});
        }
        if (lacksRoom > 0) {
            --lacksRoom;
            writeFile(fileOn(request.disk), image.substr(1, 1));
            throw CopyNeedsRoom(RamDiskError::ContentsTransferFailed{"full"});
        }
        if (restoreFailure) {
            writeFile(fileOn(request.disk), image.substr(1, 1));
            throw RamDiskError(*restoreFailure);
        }
        writeFile(fileOn(request.disk), image.substr(1, image.size() - 2));
        return closing;
    }
    SavedVolume describe(const std::filesystem::path& image,
                         const VolumeProtection& /*protection*/) override {
        return {.name = image.filename().string(), .capacity = {}, .used = {}};
    }

private:
    struct Source;

    struct Partial final : PartialImage {
        Partial(std::filesystem::path image, const Source& from) : path(std::move(image)), source(from) {}

        void fill(const ProgressObserver& /*observer*/) override;
        void close() override { std::ofstream(path, std::ios::app) << "]"; }

        std::filesystem::path path;
        const Source& source;
    };

    struct Source final : SaveSource {
        Source(std::filesystem::path onDisk, const std::function<void()>& after)
            : file(std::move(onDisk)),
              meanwhile(after) {}

        Status takeStatus(const ProgressObserver& /*observer*/) override {
            if (!isPresent()) {
                throw std::runtime_error("gone");
            }
            const auto former = std::exchange(content, readFile(file));
            return std::exchange(hasStatus, true) && former == content ? Status::unchanged : Status::changed;
        }
        bool isPresent() const override { return std::filesystem::exists(file.parent_path()); }
        bool isUpToDate(const SaveRequest& request) override {
            return readFile(request.files.latest) == imageOf(content);
        }
        std::unique_ptr<PartialImage> begin(const std::filesystem::path& partial,
                                            const SaveRequest& request) override {
            std::error_code ignored;
            std::filesystem::rename(SavedCopyNames{request.files}.spare(), partial, ignored);
            writeFile(partial, "[");
            return std::make_unique<Partial>(partial, *this);
        }

        std::filesystem::path file;
        std::string content;
        bool hasStatus = false;
        const std::function<void()>& meanwhile;
    };
};

inline void FakeImageTool::Partial::fill(const ProgressObserver& /*observer*/) {
    writeFile(path, "[" + source.content);
    if (source.meanwhile) {
        source.meanwhile();
    }
}

} // namespace ramdisk::test
