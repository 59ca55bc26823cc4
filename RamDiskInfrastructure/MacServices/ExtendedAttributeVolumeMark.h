#pragma once

#include "RamDiskInfrastructure/MacTools/VolumeMarkAccessing.h"

namespace ramdisk {

/// The mark as an extended attribute of the volume's root folder.
class ExtendedAttributeVolumeMark final : public VolumeMarkAccessing {
public:
    [[nodiscard]] VolumeMark::Reading read(const std::filesystem::path& volume) const override;
    void write(const std::filesystem::path& volume, const UUID& instance) override;
};

} // namespace ramdisk
