#pragma once

#include "RamDiskCore/Ports/CommandRunning.h"
#include "RamDiskCore/Ports/RamDeviceAllocating.h"
#include "RamDiskCore/Values/ByteCount.h"
#include "RamDiskCore/Values/VolumePassphrase.h"
#include "RamDiskInfrastructure/MacTools/AttachedImage.h"
#include "RamDiskInfrastructure/MacTools/HDIUtilInfoParser.h"
#include "RamDiskInfrastructure/MacTools/MediaIdentifying.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace ramdisk {

/// Makes, opens and closes sparse images with macOS's disk-image tool.
///
/// An attached image belongs to the operating system and outlives a process that dies. It is found again by
/// its file or by its mount point. The mount point is a folder of its own, "RamDisk-" and a UUID, which
/// nobody else uses.
class HDIUtilImages {
public:
    enum class Access { readOnly, readWrite };
    enum class Closing { closed, leftOpen };

    struct Ports {
        std::shared_ptr<CommandRunning> runner;
        std::shared_ptr<MediaIdentifying> media;
        std::function<std::optional<MountedVolume>(const std::filesystem::path&)> volumeAt =
            MountedVolume::at;
        /// Before an image that is unmounted, but still busy, is tried again.
        std::chrono::milliseconds detachPause{500};
        /// Where mount points are made.
        std::filesystem::path mountFolder = std::filesystem::temp_directory_path();
    };

    explicit HDIUtilImages(Ports ports);

    /// Makes a new image with an empty volume. A part of a mebibyte in the size is dropped. The passphrase
    /// may be null.
    /// @throws CommandFailure
    void create(const std::filesystem::path& image, ByteCount size, const std::string& volumeName,
                const VolumePassphrase* passphrase) const;

    /// @throws RamDiskError `imageUnreadable` when the file is no image.
    [[nodiscard]] bool isEncrypted(const std::filesystem::path& image) const;

    /// The entry of this image in the list of open images. Absent when it is not open.
    /// @throws RamDiskError `imageStateUnknown`
    [[nodiscard]] std::optional<HDIUtilInfoParser::Image> openState(const std::filesystem::path& image) const;

    /// Opens an image that is not open. The passphrase is null for an image that is not encrypted.
    /// @throws RamDiskError `incorrectPassphrase`, `imageUnreadable`, `imageStateUnknown`; the image is then
    ///         closed.
    [[nodiscard]] AttachedImage open(const std::filesystem::path& image, Access access,
                                     const VolumePassphrase* passphrase) const;

    /// Whether its volume is still mounted where it was.
    [[nodiscard]] bool isMounted(const AttachedImage& image) const;

    /// Does nothing to an image that somebody else has closed.
    [[nodiscard]] Closing close(const AttachedImage& image, Force force) const noexcept;

    /// Closes an image that a dead process left open at one of our mount points. Leaves any other image
    /// alone.
    /// @returns whether the image is closed.
    bool closeAbandoned(const std::filesystem::path& image) const noexcept;

private:
    [[nodiscard]] std::filesystem::path makeMountPoint() const;
    [[nodiscard]] AttachedImage attached(const std::filesystem::path& image,
                                         const std::filesystem::path& mountPoint) const;
    [[nodiscard]] bool isOurs(const std::filesystem::path& mountPoint) const;
    /// Tries an image that is unmounted, but still busy, again.
    [[nodiscard]] Closing detachAll(const AttachedImage& image, Force force) const;
    /// @throws std::exception when neither the registry nor the list tells.
    [[nodiscard]] bool isAttached(const AttachedImage& image) const;
    void closeMountPoint(const std::filesystem::path& mountPoint) const noexcept;
    void detach(const DeviceIdentifier& device, Force force) const;

    Ports ports_;
};

} // namespace ramdisk
