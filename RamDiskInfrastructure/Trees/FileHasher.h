#pragma once

#include "RamDiskInfrastructure/Trees/FileReader.h"

namespace ramdisk {

/// Reads those files of a scanned tree below `root` whose contents the scan did not note, on several threads.
/// Notes the hashes of their blocks and their attributes. A file that is gone, or is something else by now,
/// is removed from the tree. Of a file that grows or shrinks meanwhile, what was there is noted.
/// @throws SystemCallError with the file that cannot be read
void hashFiles(TreeManifest::Contents& tree, const FileDescriptor& root, Writers writers,
               ProgressMeter& meter);

} // namespace ramdisk
