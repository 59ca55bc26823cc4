#pragma once

#include "RamDiskCore/Values/ByteCount.h"

#include <cstddef>
#include <filesystem>

namespace ramdisk {

/// What a folder and everything in it takes on its disk.
struct FolderUse {
    ByteCount bytes{};
    /// There is more than was counted.
    bool isMore = false;
};

/// Looks at `limit` items at most, so that a listing stays quick whatever the folder holds. Follows no links,
/// and counts a file of several names once for each. What cannot be read counts as more.
[[nodiscard]] FolderUse useOfFolder(const std::filesystem::path& folder, std::size_t limit = 20000);

} // namespace ramdisk
