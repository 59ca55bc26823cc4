#pragma once

#include "RamDiskInfrastructure/Linux/SavedContents/OpenImage.h"

#include <future>
#include <optional>

namespace ramdisk {

/// What the latest copy of a disk's files says of itself. It is read while the disk is looked at, since to
/// open an image is mostly waiting.
class LatestCopy {
public:
    struct Description {
        ImageOrigin origin;
        TreeManifest manifest;
    };

    /// Begins to read. The image stays open until that is done.
    LatestCopy(const std::filesystem::path& image, const VolumeProtection& protection, const LinuxHost& host);

    /// Waits until it is read, and the image closed. Absent when there is no copy, or none that tells for
    /// sure what it holds.
    /// @throws RamDiskError `incorrectPassphrase`
    [[nodiscard]] const std::optional<Description>& description();

private:
    std::future<std::optional<Description>> reading_;
    std::optional<Description> description_;
};

} // namespace ramdisk
