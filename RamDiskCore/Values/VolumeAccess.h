#pragma once

#include <optional>
#include <string_view>

namespace ramdisk {

/// Who may open a volume: every account of the machine, or only the user who made it.
enum class VolumeAccess { everyone, onlyMe };

/// The stored and typed form: "everyone" or "onlyMe".
[[nodiscard]] std::string_view rawValue(VolumeAccess access);
[[nodiscard]] std::optional<VolumeAccess> volumeAccessFromRawValue(std::string_view raw);

} // namespace ramdisk
