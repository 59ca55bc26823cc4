#pragma once

#include "RamDiskInfrastructure/Trees/TreeManifest.h"

#include <optional>
#include <string>
#include <vector>

namespace ramdisk {

/// What a disk in memory holds and the file system of an image cannot: files of more than 16 TiB, which are
/// mostly holes, and the names of a file beyond 65,000.
class UnsavableFiles {
public:
    /// Takes them out of the manifest.
    static UnsavableFiles takeFrom(TreeManifest& manifest);

    /// What they are and that the rest is saved. Absent when there are none.
    [[nodiscard]] std::optional<std::string> text() const;
    /// One of them that the other tree has. It would be lost with the copy of that tree.
    [[nodiscard]] std::optional<std::string> firstIn(const TreeManifest& other) const;

private:
    std::vector<std::string> paths_;
    std::string names_;
};

} // namespace ramdisk
