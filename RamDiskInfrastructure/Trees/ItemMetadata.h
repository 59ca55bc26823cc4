#pragma once

#include "RamDiskInfrastructure/Trees/TreeContents.h"
#include "RamDiskInfrastructure/Trees/TreeUpdate.h"

#include <string>

namespace ramdisk {

/// All extended attributes of an item of the open folder, including ACLs; for a link, the link's own. For the
/// root item, `folder` is the root itself. Attributes that we may not read are left out. An item that is gone
/// has none. If the kernel does not list them, `unlistedAttributes` stand for them.
/// @throws SystemCallError with the item's path
[[nodiscard]] ItemAttributes readAttributes(int folder, const TreeManifest::Contents& tree,
                                            std::uint32_t item);

/// The same for an open file, which is much cheaper.
/// @throws SystemCallError
[[nodiscard]] ItemAttributes readFileAttributes(int file, const TreeManifest::Contents& tree,
                                                std::uint32_t item);

/// Removes the mark of a volume from the attributes of its root. It belongs to the volume and is not part of
/// the tree.
void leaveOutVolumeMark(ItemAttributes& attributes);

/// Whether ext4 has room for these attributes in any item, whatever the item had before.
[[nodiscard]] bool fitIntoBlock(const ItemAttributes& attributes);

/// Gives an open item the owner, attributes, mode and times of the manifest, in an order in which none undoes
/// another. If the item is neither file nor folder, its descriptor was opened with O_PATH.
/// @throws SystemCallError with the item's path
void applyMetadata(int target, const TreeManifest::Contents& tree, std::uint32_t item, Owners owners,
                   AttributeRoom room = AttributeRoom::all);

} // namespace ramdisk
