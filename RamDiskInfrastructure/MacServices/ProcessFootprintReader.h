#pragma once

#include "RamDiskCore/Ports/ProcessFootprintReading.h"

namespace ramdisk {

/// The physical footprint of a process, as Activity Monitor shows it.
class ProcessFootprintReader final : public ProcessFootprintReading {
public:
    [[nodiscard]] std::optional<ByteCount> footprint(std::int32_t processID) const override;
};

} // namespace ramdisk
