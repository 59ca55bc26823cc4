#pragma once

#include "RamDiskCore/Values/RamDiskError.h"

namespace ramdisk {

/// A failure on the way of files to or from a disk, as the one error that users are told: ours as it is,
/// anything else with its text as the reason.
[[nodiscard]] RamDiskError transferError(const std::exception& error);

} // namespace ramdisk
