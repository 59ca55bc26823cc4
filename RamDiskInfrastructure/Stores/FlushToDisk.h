#pragma once

#include "RamDiskInfrastructure/Commands/FileDescriptor.h"

namespace ramdisk {

/// Waits until what was written through the descriptor, a file's or a folder's, would survive a power cut.
/// @returns 0, or the errno of the failure.
[[nodiscard]] int flushToDisk(const FileDescriptor& file) noexcept;

/// The same for everything that anybody wrote to the file system that the file or folder lies on.
[[nodiscard]] int flushFileSystem(const FileDescriptor& file) noexcept;

} // namespace ramdisk
