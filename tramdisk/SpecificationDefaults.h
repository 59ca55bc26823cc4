#pragma once

#include "RamDiskCore/Values/RamDiskSpecification.h"
#include "tramdisk/Commands.h"

namespace ramdisk::cli {

/// The disk that the options describe, with the user's settings for what they leave open. A name that was not
/// given is the first free one.
[[nodiscard]] RamDiskSpecification specificationFrom(const SpecificationOptions& options,
                                                     const CommandContext& context);

} // namespace ramdisk::cli
