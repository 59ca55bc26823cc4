#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace ramdisk {

/// The order in which the user wants to see the disks.
struct DiskOrder {
    /// What is read at most, so that a list that only ever grew does not slow every look at the disks.
    static constexpr std::size_t maximumLength = 200;

    /// One entry a disk.
    std::vector<std::string> entries{};

    friend bool operator==(const DiskOrder&, const DiskOrder&) = default;
};

} // namespace ramdisk
