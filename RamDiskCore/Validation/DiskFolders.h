#pragma once

#include "RamDiskCore/Values/ValidationIssue.h"

#include <cstddef>
#include <string>
#include <vector>

namespace ramdisk {

/// The list of folders to make on a disk.
///
/// An entry is a path below the disk's root folder. White space around it, empty parts and "." are removed. A
/// leading slash means the root folder. An entry with ".." is refused, even one that would stay on the disk,
/// since there may be links on the way, as is a name longer than any file's. Two spellings of one folder
/// count as one.
struct DiskFolders {
    static constexpr std::size_t maximumCount = 32;
    /// In bytes.
    static constexpr std::size_t longestName = 255;

    /// The entries as relative paths, in the given order.
    std::vector<std::string> folders;
    /// The first invalid entry, and whether there are too many. Empty when the list can be used.
    std::vector<ValidationIssue> issues;

    [[nodiscard]] static DiskFolders check(const std::vector<std::string>& entries);
};

} // namespace ramdisk
