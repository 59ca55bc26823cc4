#pragma once

#include "RamDiskCore/Ports/Port.h"
#include "RamDiskCore/Values/RamDisk.h"

#include <filesystem>
#include <vector>

namespace ramdisk {

/// Tells which RAM disks are attached right now.
class RamDiskInventory : public Port {
public:
    /// The attached disks that the caller may see, in the operating system's order. What cannot be read of a
    /// disk is absent in its entry and never fails the listing.
    /// @throws RamDiskError `inventoryUnavailable`
    [[nodiscard]] virtual std::vector<RamDisk> list() = 0;

    /// Those of `list` that belong to the caller, so that an eject of all disks never reaches another user's.
    /// On a platform where every listed disk is the caller's, the same as `list`.
    [[nodiscard]] virtual std::vector<RamDisk> listOwn();

    /// Whether `disk` is mounted where it was when it was listed. Once it is not, that path leads to the
    /// system's own disk.
    /// @throws RamDiskError `inventoryUnavailable`
    [[nodiscard]] bool isStillMounted(const RamDisk& disk);

    /// Whether two standardised paths are one to the platform's file systems. To some a path is bytes.
    [[nodiscard]] virtual bool isSamePath(const std::filesystem::path& left,
                                          const std::filesystem::path& right) const;
};

} // namespace ramdisk
