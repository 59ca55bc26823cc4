#pragma once

#include "RamDiskCore/Ports/Port.h"
#include "RamDiskCore/Values/RamDisk.h"

namespace ramdisk {

/// Gives back the memory that deleted files of a disk still hold.
class MemoryTrimming : public Port {
public:
    /// Does nothing where the volume gives memory back by itself. Never throws: what was not given back now
    /// is given back the next time.
    virtual void trim(const RamDisk& disk) noexcept = 0;
};

} // namespace ramdisk
