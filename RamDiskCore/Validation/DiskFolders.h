#pragma once

#include "RamDiskCore/Values/ValidationIssue.h"

#include <cstddef>
#include <string>
#include <vector>

namespace ramdisk {

/// The list of folders to make on a disk.
///
/// An entry is a path below the disk's top folder. White space around it, empty parts and "." go; a leading
/// slash means the disk's top. An entry with ".." is refused, even where it would stay on the disk: what lies
/// there may be a link. Two spellings of one folder are one folder.
struct DiskFolders {
    static constexpr std::size_t maximumCount = 32;

    /// The entries as relative paths, in their order.
    std::vector<std::string> folders;
    /// The first entry that is no such path, and whether there are too many. Empty when the list can be used.
    std::vector<ValidationIssue> issues;

    [[nodiscard]] static DiskFolders check(const std::vector<std::string>& entries);
};

} // namespace ramdisk
