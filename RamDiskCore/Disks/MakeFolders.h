#pragma once

#include "RamDiskCore/Ports/FolderMaking.h"
#include "RamDiskCore/Values/RamDiskError.h"

#include <filesystem>
#include <string>
#include <vector>

namespace ramdisk {

/// Makes folders below the root of the volume. Returns an error for each folder that could not be made.
[[nodiscard]] std::vector<RamDiskError> makeFolders(FolderMaking& maker,
                                                    const std::vector<std::string>& folders,
                                                    const std::filesystem::path& volume);

} // namespace ramdisk
