#pragma once

#include "RamDiskCore/Values/UUID.h"

#include <nlohmann/json_fwd.hpp>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <stdexcept>
#include <string>

/// Strict reading of stored values. The JSON library silently turns -1 and 1.5 into an unsigned number. So
/// everything is read through these functions.
namespace ramdisk {

using Json = nlohmann::ordered_json;

/// A stored value is not what it has to be.
class DecodingError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The member `key`. Each of these throws a DecodingError when the value is missing or of another type.
[[nodiscard]] const Json& member(const Json& object, const char* key);
/// Null when the member is missing or null.
[[nodiscard]] const Json* optionalMember(const Json& object, const char* key);

[[nodiscard]] bool booleanFrom(const Json& json);
[[nodiscard]] std::string textFrom(const Json& json);
/// A whole number from 0 to `largest`.
[[nodiscard]] std::uint64_t unsignedFrom(const Json& json,
                                         std::uint64_t largest = std::numeric_limits<std::uint64_t>::max());
[[nodiscard]] std::int64_t integerFrom(const Json& json);
/// 36 characters, written in upper case and read in either.
[[nodiscard]] UUID uuidFrom(const Json& json);

/// Seconds since 1 January 2001, 00:00 UTC, with fractions.
[[nodiscard]] Json dateToJson(std::chrono::system_clock::time_point date);
[[nodiscard]] std::chrono::system_clock::time_point dateFrom(const Json& json);

/// A file URL with an absolute path, whatever bytes that has.
/// @throws std::invalid_argument for a relative path.
[[nodiscard]] Json fileURLToJson(const std::filesystem::path& path);
[[nodiscard]] std::filesystem::path fileURLFrom(const Json& json);

} // namespace ramdisk
