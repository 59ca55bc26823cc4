#pragma once

#include "RamDiskCore/Values/RamDiskSetup.h"
#include "tramdisk/CommandContext.h"
#include "tramdisk/SetupOptions.h"

namespace ramdisk::cli {

/// The disk that the options describe. What they leave open is as the template says, where one is given, else
/// as the user's settings say. A name that neither gives, and a template's name that is taken, is the first
/// free one.
/// @throws RamDiskError `templateNotFound`; UsageError when files are to be kept of a disk that is not made
///         at launch.
[[nodiscard]] RamDiskSetup setupFrom(const SetupOptions& options, const CommandContext& context);

} // namespace ramdisk::cli
