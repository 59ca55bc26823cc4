#pragma once

#include "RamDiskInfrastructure/Commands/FileDescriptor.h"

#include <filesystem>

namespace ramdisk {

/// Whether both descriptors are of one file or folder. False when that cannot be told.
[[nodiscard]] bool isSameFile(const FileDescriptor& one, const FileDescriptor& other) noexcept;

/// Whether the path still leads to the open file; a link at its end is not followed. False when that cannot
/// be told.
[[nodiscard]] bool isSameFile(const FileDescriptor& file, const std::filesystem::path& path) noexcept;

} // namespace ramdisk
