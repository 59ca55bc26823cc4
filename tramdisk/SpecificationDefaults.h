#pragma once

#include "RamDiskCore/Disks/RamDiskServices.h"
#include "RamDiskCore/Values/RamDiskSpecification.h"
#include "tramdisk/Invocation.h"

namespace ramdisk::cli {

/// The disk that the options describe, with the defaults for what they leave open. A name that was not given
/// is the first free one.
[[nodiscard]] RamDiskSpecification specificationFrom(const SpecificationOptions& options,
                                                     const RamDiskServices& services);

} // namespace ramdisk::cli
