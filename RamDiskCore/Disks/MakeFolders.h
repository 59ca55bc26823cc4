#pragma once

#include "RamDiskCore/Ports/FolderMaking.h"
#include "RamDiskCore/Values/RamDiskError.h"

#include <filesystem>
#include <string>
#include <vector>

namespace ramdisk {

/// Makes the folders below the volume's top and gives why those that failed did.
[[nodiscard]] std::vector<RamDiskError> makeFolders(FolderMaking& maker,
                                                    const std::vector<std::string>& folders,
                                                    const std::filesystem::path& volume);

} // namespace ramdisk
