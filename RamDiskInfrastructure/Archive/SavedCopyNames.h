#pragma once

#include "RamDiskCore/Startup/SavedContents.h"

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>

namespace ramdisk {

/// The names of everything that lies beside a disk's latest saved image.
struct SavedCopyNames {
    SavedCopyFiles files;

    /// A fresh name for an image in the making.
    [[nodiscard]] std::filesystem::path partial() const;
    /// The place of an earlier copy that was saved at `savedAt`.
    [[nodiscard]] std::filesystem::path earlier(std::chrono::system_clock::time_point savedAt) const;
    /// An image whose contents are given up and which the next save may start from.
    [[nodiscard]] std::filesystem::path spare() const;
    /// Where an image waits that is to take the latest's place.
    [[nodiscard]] std::filesystem::path incoming() const;
    /// The text file that tells which disk the image belongs to.
    [[nodiscard]] std::filesystem::path bound() const;

    [[nodiscard]] bool isPartial(const std::filesystem::path& file) const;
    [[nodiscard]] bool isEarlier(const std::filesystem::path& file) const;
};

} // namespace ramdisk
