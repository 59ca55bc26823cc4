#pragma once

#include "RamDiskCore/Ports/WriteBlocking.h"

namespace ramdisk {

/// Makes the mount of a volume read-only. The kernel refuses that while a file is open for writing. Programs
/// can go on reading.
///
/// If this process dies in between, the disk stays read-only until somebody ejects it or the next session
/// starts. Kernels before 5.12 cannot do it.
class LinuxWriteBlocking final : public WriteBlocking {
public:
    [[nodiscard]] Outcome block(const RamDisk& disk) override;
    void allow(const RamDisk& disk) noexcept override;
};

} // namespace ramdisk
