#pragma once

#include "RamDiskCore/Preferences/DefaultsValue.h"
#include "RamDiskCore/Preferences/PreferencesSnapshot.h"

#include <nlohmann/json_fwd.hpp>

namespace ramdisk {

using Json = nlohmann::ordered_json;

/// Values of the user defaults as JSON. Data, for which JSON has no type, is an object with the one key
/// "$data" and hexadecimal digits.
[[nodiscard]] Json toJSON(const DefaultsValue& value);
/// @throws DecodingError for what the user defaults cannot hold, such as null.
[[nodiscard]] DefaultsValue defaultsValueFrom(const Json& json);

/// The settings under the names of their fields; the intervals in minutes.
[[nodiscard]] Json toJSON(const PreferencesSnapshot& snapshot);

} // namespace ramdisk
