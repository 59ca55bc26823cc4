#pragma once

#include "RamDiskCore/Values/ByteCount.h"
#include "RamDiskCore/Values/RamDisk.h"

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>

namespace ramdisk {

/// One saved image of a disk, the latest or an earlier copy.
struct SavedCopy {
    std::filesystem::path image;
    std::chrono::system_clock::time_point savedAt;
    /// How much room the image takes on the system disk.
    ByteCount size;
    bool isLatest = false;

    friend bool operator==(const SavedCopy&, const SavedCopy&) = default;
};

/// Where a disk's latest saved image lies, or will lie. Its earlier copies lie beside it.
struct SavedCopyFiles {
    std::filesystem::path latest;

    friend bool operator==(const SavedCopyFiles&, const SavedCopyFiles&) = default;
};

/// What the volume in an image holds.
struct SavedVolume {
    std::string name;
    ByteCount capacity;
    ByteCount used;
    /// Whether the volume takes names that differ only in letter case for one name.
    bool mergesNames = false;
    /// Where the image is mounted, when somebody has it open already.
    std::optional<std::filesystem::path> openAt = std::nullopt;

    friend bool operator==(const SavedVolume&, const SavedVolume&) = default;
};

/// The result of putting a saved copy back.
struct RestoredVolume {
    RamDisk disk;
    /// The files are on the disk, but the image could not be closed afterwards.
    bool isImageLeftOpen = false;

    friend bool operator==(const RestoredVolume&, const RestoredVolume&) = default;
};

/// How far a disk has got its saved files back. Only a disk that is `restored` may be saved: with any other,
/// the saved copy holds files that the disk does not.
enum class RestoreState {
    /// Its saved files are on it, or there are none.
    restored,
    /// They are not on it, and nobody is putting them there.
    awaiting,
    /// They are being copied.
    restoring,
};

} // namespace ramdisk
