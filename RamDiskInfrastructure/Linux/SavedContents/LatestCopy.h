#pragma once

#include "RamDiskInfrastructure/Linux/SavedContents/OpenImage.h"

#include <future>
#include <optional>

namespace ramdisk {

/// What the latest copy of a disk's files says about itself. It is read while the disk is being read, since
/// opening an image is mostly waiting.
class LatestCopy {
public:
    struct Description {
        ImageOrigin origin;
        TreeManifest manifest;
    };

    /// Starts to read. The image stays open until that is done.
    LatestCopy(const std::filesystem::path& image, const VolumeProtection& protection, const LinuxHost& host);

    /// Waits until it is read and the image is closed. Absent when there is no copy, or when it is not
    /// certain what the copy holds.
    /// @throws RamDiskError `incorrectPassphrase`
    [[nodiscard]] const std::optional<Description>& description();

private:
    std::future<std::optional<Description>> reading_;
    std::optional<Description> description_;
};

} // namespace ramdisk
