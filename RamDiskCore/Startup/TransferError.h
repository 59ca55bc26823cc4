#pragma once

#include "RamDiskCore/Values/RamDiskError.h"

namespace ramdisk {

/// A failure to copy files to or from a disk, as the error that users see: one of ours unchanged, anything
/// else with its text as the reason.
[[nodiscard]] RamDiskError transferError(const std::exception& error);

} // namespace ramdisk
