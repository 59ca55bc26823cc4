#pragma once

#include "RamDiskInfrastructure/Trees/TreeContents.h"

#include <optional>
#include <string>
#include <vector>

namespace ramdisk {

/// For every item of one tree the item of the same path in another one.
struct TreePairing {
    std::vector<std::uint32_t> ofSource;
    std::vector<std::uint32_t> ofTarget;
};
[[nodiscard]] TreePairing pairItems(const TreeManifest::Contents& source,
                                    const TreeManifest::Contents& target);

/// Pairs by name the items of two folders that are already paired. `pairing` must have room for them.
void pairChildren(const TreeManifest::Contents& source, std::uint32_t sourceFolder,
                  const TreeManifest::Contents& target, std::uint32_t targetFolder, TreePairing& pairing);

[[nodiscard]] bool isSameTime(const timespec& left, const timespec& right);
/// Whether two items have the same mode, flags, owner, modification time and attributes.
[[nodiscard]] bool isSameMetadata(const TreeManifest::Contents& source, std::uint32_t sourceItem,
                                  const TreeManifest::Contents& target, std::uint32_t targetItem);
/// Whether two files hold the same bytes.
[[nodiscard]] bool isSameFile(const TreeManifest::Contents& source, std::uint32_t sourceItem,
                              const TreeManifest::Contents& target, std::uint32_t targetItem);

/// The first item in which the trees differ, and how: "folder/file: contents differ".
[[nodiscard]] std::optional<std::string> firstDifference(const TreeManifest::Contents& source,
                                                         const TreeManifest::Contents& target);

} // namespace ramdisk
