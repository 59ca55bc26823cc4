#pragma once

#include "RamDiskCore/Ports/MemoryTrimming.h"

namespace ramdisk {

/// Makes ext4 tell the memory file below it which blocks are free (FITRIM). A tmpfs does not need this.
class FreeSpaceTrimming final : public MemoryTrimming {
public:
    void trim(const RamDisk& disk) noexcept override;
};

} // namespace ramdisk
