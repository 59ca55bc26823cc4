#pragma once

#include "RamDiskInfrastructure/Commands/FileDescriptor.h"

#include <filesystem>
#include <optional>
#include <string>

namespace ramdisk {

/// The whole content of a file whose size is not known beforehand, such as one below /proc.
/// @throws SystemCallError
[[nodiscard]] std::string readSmallFile(const std::filesystem::path& path);

/// The same; absent when it cannot be read.
[[nodiscard]] std::optional<std::string> tryReadSmallFile(const std::filesystem::path& path);

/// Opens a folder for reading; a symbolic link in its place is refused.
/// @throws SystemCallError
[[nodiscard]] FileDescriptor requireFolder(const std::filesystem::path& path);

} // namespace ramdisk
