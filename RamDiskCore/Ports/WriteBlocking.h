#pragma once

#include "RamDiskCore/Ports/Port.h"
#include "RamDiskCore/Values/RamDisk.h"

namespace ramdisk {

/// Keeps a mounted volume from being written to, between its last save and its eject, so that nothing can get
/// lost in between.
class WriteBlocking : public Port {
public:
    /// Whether nobody can write to the disk from now on. False when a program has one of its files open for
    /// writing, or where it cannot be done; then nothing has changed.
    [[nodiscard]] virtual bool block(const RamDisk& disk) = 0;

    /// Lets the disk be written to again; that it never was blocked is no failure.
    virtual void allow(const RamDisk& disk) noexcept = 0;
};

} // namespace ramdisk
