#pragma once

#include "RamDiskCore/Values/RamDisk.h"
#include "RamDiskInfrastructure/MacTools/VolumeContents.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace ramdisk {

/// What an image tells of the disk that it was filled from: which disk that was, and when each of its items
/// was last changed. It lies in the root of the image's volume, so that it is encrypted with it.
///
/// The same manifest means that nothing but contents may have changed, by a program that writes through a
/// shared mapping; contents have to be compared besides.
class ImageManifest {
public:
    /// The name of its file, which belongs to no user's files.
    static constexpr std::string_view fileName = ".ramdisk-manifest";

    /// Absent when it would prove nothing: an item was changed so shortly before that a later change may have
    /// the same date, or the disk cannot be told from others.
    /// @param takenAt when the taking of the status began.
    [[nodiscard]] static std::optional<ImageManifest>
    of(const RamDisk& disk, const VolumeContents::Status& status,
       std::chrono::sys_time<std::chrono::nanoseconds> takenAt);

    /// @throws SystemCallError
    void writeTo(const std::filesystem::path& volume) const;
    /// Whether the manifest on the volume is this one.
    [[nodiscard]] bool isOn(const std::filesystem::path& volume) const;

private:
    explicit ImageManifest(std::string text) : text_(std::move(text)) {}

    std::string text_;
};

} // namespace ramdisk
