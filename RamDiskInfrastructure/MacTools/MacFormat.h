#pragma once

#include "RamDiskCore/Values/FileSystem.h"

#include <optional>
#include <string>
#include <string_view>

namespace ramdisk {

/// How a volume tells "File" from "file".
enum class CaseSensitivity { insensitive, sensitive };

/// Whether a volume keeps a journal.
enum class Journaling { off, on };

/// The name by which the disk utility knows a format, such as "JHFS+".
[[nodiscard]] std::string_view diskUtilName(FileSystem fileSystem);

/// A volume's name as the disk utility takes it: FAT32 knows large letters only.
[[nodiscard]] std::string volumeNameFor(FileSystem fileSystem, const std::string& name);

/// Our format for a type of the mount table, such as apfs, hfs, exfat or msdos. Absent for every other type
/// and for a case-sensitive Mac OS Extended volume, which we never make.
[[nodiscard]] std::optional<FileSystem> fileSystemOfMountType(std::string_view type, CaseSensitivity names,
                                                              Journaling journaling);

} // namespace ramdisk
