#pragma once

#include "RamDiskCore/Ports/Port.h"

#include <cstdint>
#include <optional>
#include <string>

namespace ramdisk {

/// Tells one medium from a later one with the same device name.
class MediaIdentifying : public Port {
public:
    /// The identifier of the medium that has the name now. No two media ever have the same. Absent when there
    /// is none. Safe from any thread.
    [[nodiscard]] virtual std::optional<std::uint64_t> identifier(const std::string& bsdName) = 0;
};

} // namespace ramdisk
