#pragma once

#include "RamDiskCore/Ports/CommandRunning.h"
#include "RamDiskCore/Values/RamDisk.h"
#include "RamDiskCore/Values/VolumeProtection.h"
#include "RamDiskInfrastructure/Linux/Mounting/LoopDevice.h"

#include <compare>
#include <cstdint>
#include <string>
#include <vector>

namespace ramdisk {

/// What an image's file system must have room for. The image's file is sparse: unused room takes no space.
struct ImageGeometry {
    ByteCount size;
    std::uint64_t inodes = 0;
    unsigned journalInMebibytes = 0;

    /// Room for everything that a disk of this capacity can ever hold, including many small files, and at
    /// least for what it holds now.
    [[nodiscard]] static ImageGeometry of(ByteCount capacity, std::uint64_t items, std::uint64_t bytes);

    /// The next larger geometry.
    [[nodiscard]] ImageGeometry doubled() const;

    /// The arguments with which the tool makes it on `device`. The label contains the disk's name only if the
    /// image is not encrypted.
    [[nodiscard]] std::vector<std::string> arguments(const std::string& diskName,
                                                     const VolumeProtection& protection,
                                                     const std::string& device) const;

    friend auto operator<=>(const ImageGeometry&, const ImageGeometry&) = default;
};

/// Makes an empty file system on the device.
/// @throws RamDiskError `contentsTransferFailed` when the tool is missing; CommandFailure, CommandTimeout
void layImage(const LoopDevice& device, const ImageGeometry& geometry, const std::string& diskName,
              const VolumeProtection& protection, CommandRunning& runner);

/// Whether the file system on the device is sound or could be repaired.
[[nodiscard]] bool checkImage(const LoopDevice& device, CommandRunning& runner);

} // namespace ramdisk
