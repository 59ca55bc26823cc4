#pragma once

#include "RamDiskInfrastructure/Trees/FileReader.h"

namespace ramdisk {

/// Reads the files of a scanned tree below `root` whose contents the scan did not note, on several threads,
/// and notes the hashes of their blocks and their attributes. A file that is gone, or something else by now,
/// is taken out of the tree; of one that grows or shrinks meanwhile, what was there is noted.
/// @throws SystemCallError naming the file that cannot be read
void hashFiles(TreeManifest::Contents& tree, const FileDescriptor& root, Writers writers,
               ProgressMeter& meter);

} // namespace ramdisk
