#pragma once

#include "RamDiskCore/Ports/FolderRedirecting.h"

#include <filesystem>
#include <vector>

namespace ramdisk {

/// How the backup of an original is named: its own name, and this.
inline constexpr const char* originalEnding = ".ramdisk-original";

/// How an original is named that is kept on purpose, since files from a disk have its place.
inline constexpr const char* formerEnding = ".ramdisk-former";

/// The originals of redirects that `known` does not hold: folders that still have the name of a backup.
/// Looks in the home folder, in the folders that it holds, where known caches lie, and where `known` leads;
/// no deeper, and for a few seconds at most. What cannot be read is passed over. One that is kept on purpose
/// counts if nothing has its place.
[[nodiscard]] std::vector<StrayOriginal> findStrayOriginals(const std::filesystem::path& home,
                                                            const std::vector<FolderRedirect>& known);

} // namespace ramdisk
