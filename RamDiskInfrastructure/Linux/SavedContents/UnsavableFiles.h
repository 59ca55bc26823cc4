#pragma once

#include "RamDiskInfrastructure/Trees/TreeManifest.h"

#include <optional>
#include <set>
#include <string>

namespace ramdisk {

/// What a disk in memory holds and a copy cannot: files of more than 16 TiB, which are mostly holes, the
/// names of a file beyond 65,000, and attributes whose names take more than 64 KiB, which the kernel does not
/// list.
class UnsavableFiles {
public:
    /// Takes them out of the manifest. An item stays in it without its attributes.
    static UnsavableFiles takeFrom(TreeManifest& manifest);
    /// Counts these as well, with those that are there.
    void add(UnsavableFiles more);

    /// What they are and that the rest is saved. Absent when there are none.
    [[nodiscard]] std::optional<std::string> text() const;
    /// One of them of which the other tree has what is taken out. It would be lost with the copy of that
    /// tree.
    [[nodiscard]] std::optional<std::string> firstIn(const TreeManifest& other) const;

private:
    std::set<std::string> paths_;
    /// The items whose attributes were taken out.
    std::set<std::string> unlisted_;
};

} // namespace ramdisk
