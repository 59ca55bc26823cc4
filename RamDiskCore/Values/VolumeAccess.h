#pragma once

#include "RamDiskCore/Values/EnumerationTable.h"

#include <optional>
#include <string_view>

namespace ramdisk {

/// Who may open a volume: every account of the machine, or only the user who made it.
enum class VolumeAccess { everyone, onlyMe };

template <>
inline constexpr auto enumerators<VolumeAccess> = enumerationTable<Named<VolumeAccess>>(
    {{VolumeAccess::everyone, "everyone"}, {VolumeAccess::onlyMe, "onlyMe"}});

[[nodiscard]] constexpr std::optional<VolumeAccess> volumeAccessFromRawValue(std::string_view raw) {
    return fromRawValue<VolumeAccess>(raw);
}

} // namespace ramdisk
