#pragma once

#include "RamDiskCore/Ports/Port.h"

#include <filesystem>
#include <string>

namespace ramdisk {

/// Makes folders on a volume.
class FolderMaking : public Port {
public:
    /// Makes the folder at `relativePath` below `volume`, with the folders above it, where they are missing.
    /// Never leaves the volume, whatever links lie on it.
    /// @throws RamDiskError `folderNotCreated`
    virtual void make(const std::string& relativePath, const std::filesystem::path& volume) = 0;
};

} // namespace ramdisk
