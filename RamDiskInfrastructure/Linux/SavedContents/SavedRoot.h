#pragma once

#include "RamDiskCore/Values/VolumeAccess.h"
#include "RamDiskInfrastructure/Trees/TreeManifest.h"

namespace ramdisk {

/// Removes this system's mark from the root. The mark tells one disk from all others and is not part of its
/// files.
void forgetMark(TreeManifest& manifest);

/// When saved files are put onto a disk, the disk keeps what is its own: its mark, and, if it was made so,
/// that nobody else may open it.
void keepDisksOwn(TreeManifest& saved, const TreeManifest& disk, VolumeAccess access);

} // namespace ramdisk
