#pragma once

#include "RamDiskCore/Ports/Port.h"
#include "RamDiskCore/Values/RamDisk.h"

namespace ramdisk {

/// Keeps a mounted volume from being written to, between its last save and its eject, so that nothing can get
/// lost in between.
class WriteBlocking : public Port {
public:
    enum class Outcome {
        /// Nobody can write to the disk from now on.
        blocked,
        /// A program has one of its files open for writing. Nothing has changed.
        busy,
        /// It cannot be done here.
        unsupported,
    };

    [[nodiscard]] virtual Outcome block(const RamDisk& disk) = 0;

    /// Lets the disk be written to again; that it never was blocked is no failure.
    virtual void allow(const RamDisk& disk) noexcept = 0;
};

} // namespace ramdisk
