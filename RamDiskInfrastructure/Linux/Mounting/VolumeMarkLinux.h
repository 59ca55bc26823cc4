#pragma once

#include "RamDiskCore/Values/VolumeMark.h"

#include <filesystem>

namespace ramdisk {

/// Writes the mark with this identifier on an open root folder. If the file system keeps no user attributes,
/// nothing is written. The disk's record, with the identifier that the kernel shows, is the mark then.
/// @throws SystemCallError for any other failure.
void writeVolumeMark(int rootDescriptor, const UUID& instance);

/// What the mark on a volume says. Unset when there is none or it cannot be read.
[[nodiscard]] VolumeMark::Reading readVolumeMark(const std::filesystem::path& volume);

} // namespace ramdisk
