#pragma once

#include "RamDiskCore/Disks/CreateRamDiskResult.h"
#include "RamDiskCore/Memory/MemoryOverview.h"
#include "RamDiskCore/Ports/VolumeUsersListing.h"
#include "RamDiskCore/Values/RamDisk.h"
#include "RamDiskCore/Values/RamDiskSpecification.h"
#include "RamDiskCore/Values/ValidationIssue.h"

#include <nlohmann/json_fwd.hpp>

/// Values as JSON: objects whose keys are the field names in their order; an absent optional is left out.
namespace ramdisk {

using Json = nlohmann::ordered_json;

[[nodiscard]] Json toJson(ByteCount value);
[[nodiscard]] Json toJson(const DeviceIdentifier& value);
[[nodiscard]] Json toJson(const RamDisk& value);
[[nodiscard]] Json toJson(const RamDiskSpecification& value);
[[nodiscard]] Json toJson(const SystemMemory& value);
[[nodiscard]] Json toJson(const MemoryOverview& value);
[[nodiscard]] Json toJson(const VolumeUsage& value);
[[nodiscard]] Json toJson(const VolumeUser& value);

/// One compact document. Text that is not UTF-8 shows replacement characters, since JSON has no other text.
[[nodiscard]] std::string compactText(const Json& json);

} // namespace ramdisk
