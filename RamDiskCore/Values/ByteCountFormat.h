#pragma once

#include "RamDiskCore/Values/ByteCount.h"

#include <string>

namespace ramdisk {

/// A size as users read it, in binary multiples named KB, MB, GB and TB: "512 MB", "1.5 GB", "0 bytes".
///
/// Whole numbers up to KB, one fraction digit for MB, two above, without trailing zeros.
/// Counts above the largest signed 64-bit value print as that value. Safe from any thread.
[[nodiscard]] std::string format(ByteCount size);

/// The number of `format` alone, for layouts that set number and unit apart.
[[nodiscard]] std::string formatNumber(ByteCount size);

/// The unit of `format` alone.
[[nodiscard]] std::string formatUnit(ByteCount size);

} // namespace ramdisk
