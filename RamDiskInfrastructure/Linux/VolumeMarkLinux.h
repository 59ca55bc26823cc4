#pragma once

#include "RamDiskCore/Values/VolumeMark.h"

#include <filesystem>
#include <optional>

namespace ramdisk {

/// Writes a fresh mark onto an open root folder. Absent where the file system keeps no user attributes: there
/// the disk's record, with the identifier that the kernel shows, is the mark.
/// @throws SystemCallError for any other failure.
[[nodiscard]] std::optional<UUID> writeVolumeMark(int rootDescriptor);

/// What the mark on a volume says; unset where there is none or it cannot be read.
[[nodiscard]] VolumeMark::Reading readVolumeMark(const std::filesystem::path& volume);

} // namespace ramdisk
