#pragma once

#include "RamDiskInfrastructure/Trees/TreeContents.h"
#include "RamDiskInfrastructure/Trees/TreeUpdate.h"

#include <string>

namespace ramdisk {

/// All extended attributes of an item of the open folder, ACLs included; of a link its own. For the root the
/// folder is the root itself. Attributes that we may not read are left out, and there are none of an item
/// that is gone.
/// @throws SystemCallError with the item's path
[[nodiscard]] ItemAttributes readAttributes(int folder, const TreeManifest::Contents& tree,
                                            std::uint32_t item);

/// The same of an open file, which costs a fraction.
/// @throws SystemCallError
[[nodiscard]] ItemAttributes readFileAttributes(int file, const TreeManifest::Contents& tree,
                                                std::uint32_t item);

/// Takes the mark of a volume out of the attributes of its root: it is the volume's and no part of the tree.
void leaveOutVolumeMark(ItemAttributes& attributes);

/// Gives an open item the owner, attributes, mode and times that the manifest says, in the order in which
/// none undoes another. The descriptor of what is neither file nor folder is one of O_PATH.
/// @throws SystemCallError with the item's path
void applyMetadata(int target, const TreeManifest::Contents& tree, std::uint32_t item, Owners owners);

} // namespace ramdisk
