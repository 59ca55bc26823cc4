#pragma once

#include "RamDiskCore/Disks/CreateRamDiskResult.h"
#include "RamDiskCore/Memory/MemoryOverview.h"
#include "RamDiskCore/Ports/VolumeUsersListing.h"
#include "RamDiskCore/Values/RamDisk.h"
#include "RamDiskCore/Values/RamDiskSpecification.h"
#include "RamDiskCore/Values/ValidationIssue.h"

#include <nlohmann/json_fwd.hpp>

/// Values as JSON objects, whose keys are the field names in their order. An absent optional is left out.
namespace ramdisk {

using Json = nlohmann::ordered_json;

[[nodiscard]] Json toJSON(ByteCount value);
[[nodiscard]] Json toJSON(const DeviceIdentifier& value);
[[nodiscard]] Json toJSON(const RamDisk& value);
[[nodiscard]] Json toJSON(const RamDiskSpecification& value);
[[nodiscard]] Json toJSON(const SystemMemory& value);
[[nodiscard]] Json toJSON(const MemoryOverview& value);
[[nodiscard]] Json toJSON(const VolumeUsage& value);
[[nodiscard]] Json toJSON(const VolumeUser& value);

/// One compact document. Text that is not UTF-8 gets replacement characters, since JSON cannot hold it.
[[nodiscard]] std::string compactText(const Json& json);

} // namespace ramdisk
