#pragma once

#include "RamDiskCore/Ports/Port.h"
#include "RamDiskCore/Values/VolumeMark.h"

#include <filesystem>

namespace ramdisk {

/// Puts the system's mark on a volume.
class VolumeMarking : public Port {
public:
    /// Writes a fresh mark on the root folder of the volume.
    /// @throws the error of the write, as `std::system_error`.
    virtual void mark(const std::filesystem::path& volume) = 0;
};

} // namespace ramdisk
