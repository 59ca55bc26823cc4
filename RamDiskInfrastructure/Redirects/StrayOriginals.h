#pragma once

#include "RamDiskCore/Values/FolderRedirect.h"

#include <filesystem>
#include <vector>

namespace ramdisk {

/// How the backup of an original is named: its own name, and this.
inline constexpr const char* originalEnding = ".ramdisk-original";

/// The originals of redirects that `known` does not hold: folders that still have the name of a backup.
/// Looks in the home folder, in the folders that it holds, where known caches lie, and where `known` leads;
/// no deeper, and for a few seconds at most. What cannot be read is passed over.
[[nodiscard]] std::vector<std::filesystem::path> findStrayOriginals(const std::filesystem::path& home,
                                                                    const std::vector<FolderRedirect>& known);

} // namespace ramdisk
