#pragma once

#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskInfrastructure/Archive/SavedCopyNames.h"
#include "RamDiskInfrastructure/Archive/SavedImageTool.h"
#include "tests/support/Files.h"

#include <filesystem>
#include <functional>
#include <optional>
#include <string>

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

    static std::filesystem::path fileOn(const RamDisk& disk) { return *disk.mountPoint / "file"; }
    static std::string imageOf(const std::string& content) { return "[" + content + "]"; }

    int rounds() const noexcept override { return mostRounds; }

    std::unique_ptr<SaveSource> openSource(const SaveRequest& request) override {
        auto source = std::make_unique<Source>(fileOn(request.disk));
        if (!source->isPresent()) {
            throw RamDiskError(RamDiskError::DiskEjected{});
        }
        return source;
    }
    bool isUpToDate(const SaveRequest& request, SaveSource& source) override {
        return readFile(request.files.latest) == imageOf(dynamic_cast<Source&>(source).content);
    }
    std::unique_ptr<PartialImage> begin(const std::filesystem::path& partial, const SaveRequest& request,
                                        SaveSource& /*source*/) override {
        std::error_code ignored;
        std::filesystem::rename(SavedCopyNames{request.files}.spare(), partial, ignored);
        writeFile(partial, "[");
        return std::make_unique<Partial>(partial, meanwhile);
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
        if (image.empty() || (restoreFailure && !failsHalfWay)) {
            throw restoreFailure.value_or(RamDiskError::ImageEjected{});
        }
        if (observer) {
            observer({});
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
    struct Source final : SaveSource {
        explicit Source(std::filesystem::path onDisk) : file(std::move(onDisk)) {}

        Status takeStatus(const ProgressObserver& /*observer*/) override {
            if (!isPresent()) {
                throw std::runtime_error("gone");
            }
            const auto former = std::exchange(content, readFile(file));
            return std::exchange(hasStatus, true) && former == content ? Status::unchanged : Status::changed;
        }
        bool isPresent() const override { return std::filesystem::exists(file.parent_path()); }

        std::filesystem::path file;
        std::string content;
        bool hasStatus = false;
    };

    struct Partial final : PartialImage {
        Partial(std::filesystem::path image, std::function<void()> after)
            : path(std::move(image)),
              meanwhile(std::move(after)) {}

        void fill(SaveSource& source, const ProgressObserver& /*observer*/) override {
            writeFile(path, "[" + dynamic_cast<Source&>(source).content);
            if (meanwhile) {
                meanwhile();
            }
        }
        void close() override { std::ofstream(path, std::ios::app) << "]"; }

        std::filesystem::path path;
        std::function<void()> meanwhile;
    };
};

} // namespace ramdisk::test
