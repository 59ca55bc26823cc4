#pragma once

#include "RamDiskCore/Ports/Port.h"
#include "RamDiskCore/Values/ByteCount.h"
#include "RamDiskCore/Values/FileSystem.h"

#include <filesystem>
#include <optional>
#include <string>

namespace ramdisk {

/// What the operating system says about a mounted volume. What it does not say is absent.
struct VolumeStatistics {
    std::optional<std::string> name;
    /// The format as users read it, such as "Mac OS Extended (Journaled)".
    std::optional<std::string> formatDescription;
    /// Absent when the format is not one of ours.
    std::optional<FileSystem> fileSystem;
    ByteCount total;
    ByteCount available;
    std::optional<bool> isEncrypted;

    friend bool operator==(const VolumeStatistics&, const VolumeStatistics&) = default;
};

/// Reads the statistics of mounted volumes.
class VolumeStatisticsReading : public Port {
public:
    /// Absent when the volume cannot be asked.
    [[nodiscard]] virtual std::optional<VolumeStatistics>
    read(const std::filesystem::path& mountPoint) const = 0;
};

} // namespace ramdisk
