#pragma once

#include "RamDiskCore/Ports/Port.h"
#include "RamDiskCore/Values/VolumeMark.h"

#include <filesystem>
#include <optional>
#include <string>

namespace ramdisk {

/// Reads and writes the attribute that marks our volumes.
class VolumeMarkAccessing : public Port {
public:
    /// The mark on the volume's root folder; not set when it cannot be read.
    [[nodiscard]] virtual VolumeMark::Reading read(const std::filesystem::path& volume) const = 0;

    /// @throws std::system_error
    virtual void write(const std::filesystem::path& volume, const UUID& instance) = 0;
};

/// What an attribute's value says. An absent value means that there is no attribute.
[[nodiscard]] VolumeMark::Reading markReading(const std::optional<std::string>& value);

} // namespace ramdisk
