#pragma once

#include "RamDiskCore/Ports/Port.h"
#include "RamDiskCore/Preferences/DiskOrder.h"

namespace ramdisk {

/// Keeps the order in which the user wants to see the disks.
class DiskOrderStoring : public Port {
public:
    /// The stored order, at most its first `DiskOrder::maximumLength` entries; empty when there is none.
    [[nodiscard]] virtual DiskOrder read() const = 0;
    /// Stores the order as it is.
    /// @throws std::exception when it could not be stored.
    virtual void write(const DiskOrder& order) = 0;
};

} // namespace ramdisk
