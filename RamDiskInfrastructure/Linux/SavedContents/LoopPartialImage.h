#pragma once

#include "RamDiskInfrastructure/Archive/SavedImageTool.h"
#include "RamDiskInfrastructure/Linux/SavedContents/MountedDisk.h"
#include "RamDiskInfrastructure/Linux/SavedContents/OpenImage.h"

#include <filesystem>
#include <future>
#include <memory>
#include <optional>

namespace ramdisk {

/// An image that is being filled, in a file of its own.
class LoopPartialImage final : public PartialImage {
public:
    /// Starts from a clone of the latest copy or from the spare if one of them is usable, otherwise from
    /// nothing. An unusable start never fails a save.
    /// @throws RamDiskError `contentsTransferFailed`, also when the system disk clearly has too little space.
    LoopPartialImage(std::filesystem::path partial, const SaveRequest& request, MountedSource& source,
                     const LinuxHost& host, std::shared_ptr<CommandRunning> runner);

    void fill(const ProgressObserver& observer) override;
    void close() override;

private:
    [[nodiscard]] ImageGeometry geometryFor(const TreeManifest& wanted) const;
    [[nodiscard]] std::optional<OpenImage> startFromEarlier(const TreeManifest& wanted);
    [[nodiscard]] std::optional<ImageFile> takeEarlierFile();
    [[nodiscard]] OpenImage startFromNothing(const ImageGeometry& geometry, const TreeManifest& wanted);
    void fillOnce(const ProgressObserver& observer);
    /// Opens the finished image again, since the disk changed meanwhile.
    void reopen();
    /// Writes everything to the system disk and closes the image.
    void finish();
    void requireRoom(const TreeManifest& wanted, ByteCount present) const;
    [[noreturn]] void throwTransferFailure(const std::exception& cause) const;

    MountedSource& source_;
    std::filesystem::path partial_;
    SaveRequest request_;
    LinuxHost host_;
    std::shared_ptr<CommandRunning> runner_;
    ImageGeometry geometry_;
    std::optional<OpenImage> image_;
    /// Whether what was copied last is not what the manifest lists.
    bool isOfNoUse_ = false;
    /// What the image holds from an earlier save, until it is filled.
    std::optional<TreeManifest> held_;
    /// Runs while the disk is looked at again. It must end before any other member is destroyed.
    std::future<void> finishing_;
};

} // namespace ramdisk
