#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace ramdisk {

/// The order in which the user wants to see the disks.
struct DiskOrder {
    /// How many entries are read at most, so that a list that has only ever grown does not slow down each
    /// listing of the disks.
    static constexpr std::size_t maximumLength = 200;

    /// One entry a disk.
    std::vector<std::string> entries{};

    friend bool operator==(const DiskOrder&, const DiskOrder&) = default;
};

} // namespace ramdisk
