#pragma once

#include "RamDiskCore/Values/VolumeAccess.h"
#include "RamDiskInfrastructure/Trees/TreeManifest.h"

namespace ramdisk {

/// Takes this system's mark off the root: it tells one disk from all others and is no part of its files.
void forgetMark(TreeManifest& manifest);

/// Leaves to a disk what is its own when saved files are put onto it: its mark, and that nobody else may open
/// it when it was made so.
void keepDisksOwn(TreeManifest& saved, const TreeManifest& disk, VolumeAccess access);

} // namespace ramdisk
