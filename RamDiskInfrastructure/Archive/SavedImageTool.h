#pragma once

#include "RamDiskCore/Ports/ContentArchiving.h"
#include "RamDiskCore/Ports/Port.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace ramdisk {

/// A new image that is being filled. Destroyed before `close`, it is closed by force; its file is the
/// caller's to delete.
class PartialImage : public Port {
public:
    /// Makes the image hold what its source held when the last status of that was taken. Called again after
    /// a later status, it brings the image up to it.
    /// @throws std::exception
    virtual void fill(const ProgressObserver& observer) = 0;

    /// Closes the image. When it returns, the image's file is whole and on the system disk.
    /// @throws std::exception
    virtual void close() = 0;
};

/// A disk's volume that is being saved. As long as this object exists, the volume may count as in use.
class SaveSource : public Port {
public:
    enum class Status { unchanged, changed };

    /// Takes the status of every item on the volume and compares it with the one taken before. The first time
    /// it is `changed`.
    /// @throws std::exception when the volume cannot be read.
    virtual Status takeStatus(const ProgressObserver& observer) = 0;

    /// Whether the volume is still mounted where it was.
    [[nodiscard]] virtual bool isPresent() const = 0;

    /// Whether the image at `request.files.latest` holds exactly what the last status says. When in doubt it
    /// does not.
    [[nodiscard]] virtual bool isUpToDate(const SaveRequest& request) = 0;

    /// What of the last status no image can hold, in words. The image then holds all but that.
    [[nodiscard]] virtual std::optional<std::string> leftOut() const { return std::nullopt; }

    /// Makes the image file at `partial`, possibly from an earlier copy, and opens it. The source outlives
    /// the image.
    /// @throws std::exception; a file that is there then is the caller's to delete.
    [[nodiscard]] virtual std::unique_ptr<PartialImage> begin(const std::filesystem::path& partial,
                                                              const SaveRequest& request) = 0;
};

/// The platform's half of saving: what images are, and how they are opened and filled.
/// `SavedContentsArchiver` decides when a copy counts, what it is called and how long it is kept.
class SavedImageTool : public Port {
public:
    /// @throws as `ContentArchiving::requireSupport`
    virtual void requireSupport(const RamDisk& /*disk*/) const {}

    /// How often an image is filled again with what changed meanwhile, before the save gives up.
    [[nodiscard]] virtual int rounds() const noexcept = 0;

    /// @throws RamDiskError `diskEjected` when the volume is not mounted; std::exception
    [[nodiscard]] virtual std::unique_ptr<SaveSource> openSource(const SaveRequest& request) = 0;

    /// Reads a closed image back and compares everything in it with what was saved.
    /// @throws RamDiskError `contentsTransferFailed` with what differs; std::exception
    virtual void verify(const std::filesystem::path& image, const VolumeProtection& protection) = 0;

    /// Retires a copy that is no longer kept. The tool may keep its file under the spare name and start the
    /// next image from it. Never throws: what cannot be removed now stays until the next time.
    virtual void retire(const std::filesystem::path& image, const SavedCopyFiles& files) noexcept = 0;

    /// Closes the partial image of a dead save, if the image is still open. Its file is deleted next.
    virtual void abandon(const std::filesystem::path& /*partial*/) noexcept {}

    /// Copies what is in the image onto the disk. @returns whether the image could be closed.
    /// @throws as `ContentArchiving::restore`.
    enum class Closing { closed, leftOpen };
    virtual Closing restore(const RestoreRequest& request, const ProgressObserver& observer) = 0;

    /// @throws as `ContentArchiving::describe`.
    [[nodiscard]] virtual SavedVolume describe(const std::filesystem::path& image,
                                               const VolumeProtection& protection) = 0;
};

} // namespace ramdisk
