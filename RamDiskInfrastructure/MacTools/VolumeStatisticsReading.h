#pragma once

#include "RamDiskCore/Values/ByteCount.h"
#include "RamDiskCore/Values/FileSystem.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

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
class VolumeStatisticsReading {
public:
    VolumeStatisticsReading() = default;
    VolumeStatisticsReading(const VolumeStatisticsReading&) = delete;
    VolumeStatisticsReading& operator=(const VolumeStatisticsReading&) = delete;
    virtual ~VolumeStatisticsReading() = default;

    /// Absent when the volume cannot be asked.
    [[nodiscard]] virtual std::optional<VolumeStatistics>
    read(const std::filesystem::path& mountPoint) const = 0;
};

/// Whether a volume tells "File" from "file".
enum class CaseSensitivity { insensitive, sensitive };

/// Whether a volume keeps a journal.
enum class Journaling { off, on };

/// Our format for a type of the mount table, such as apfs, hfs, exfat or msdos. Absent for every other type,
/// and for a case-sensitive Mac OS Extended volume, which this system never makes.
[[nodiscard]] std::optional<FileSystem> fileSystemOfMountType(std::string_view type, CaseSensitivity names,
                                                              Journaling journaling);

} // namespace ramdisk
