#pragma once

#include "RamDiskCore/Ports/TransferProgress.h"
#include "RamDiskInfrastructure/Linux/Trees/TreeContents.h"

namespace ramdisk {

/// Whether it is noted which files nobody has open for writing.
enum class Writers { ignore, note };

/// Reads the files of a scanned tree below `root` on several threads and notes the hashes of their blocks and
/// their attributes. A file that is gone, or something else by now, is taken out of the tree; of one that
/// grows or shrinks meanwhile, what was there is noted. What nobody wrote to since `earlier` is taken from
/// there.
/// @throws SystemCallError naming the file that cannot be read
void hashFiles(TreeManifest::Contents& tree, const FileDescriptor& root, const ProgressObserver& observer,
               Writers writers, const TreeManifest::Contents* earlier = nullptr);

} // namespace ramdisk
