#pragma once

#include "RamDiskCore/Values/ByteCount.h"
#include "RamDiskCore/Values/FileSystem.h"
#include "RamDiskCore/Values/RamDiskReference.h"
#include "RamDiskCore/Values/RedirectTarget.h"
#include "RamDiskCore/Values/UUID.h"
#include "RamDiskCore/Values/VolumeAccess.h"

#include <filesystem>
#include <string>

namespace ramdisk::cli {

/// What a text that a user typed means.
/// @throws UsageError when it means nothing.
template <typename Value>
[[nodiscard]] Value valueFrom(const std::string& text);

template <>
[[nodiscard]] inline std::string valueFrom(const std::string& text) {
    return text;
}
/// A bare number means megabytes.
template <>
[[nodiscard]] ByteCount valueFrom(const std::string& text);
template <>
[[nodiscard]] FileSystem valueFrom(const std::string& text);
template <>
[[nodiscard]] VolumeAccess valueFrom(const std::string& text);
template <>
[[nodiscard]] RamDiskReference valueFrom(const std::string& text);
template <>
[[nodiscard]] RedirectTarget valueFrom(const std::string& text);
template <>
[[nodiscard]] UUID valueFrom(const std::string& text);
/// Absolute: the path may be used again by a process that runs elsewhere.
template <>
[[nodiscard]] std::filesystem::path valueFrom(const std::string& text);

/// What help texts say of such values.
inline constexpr auto referenceHelp = "A device, a mount point or a name";
[[nodiscard]] std::string formatHelp();
[[nodiscard]] std::string encryptionHelp();
[[nodiscard]] std::string accessHelp();
[[nodiscard]] std::string targetHelp();

} // namespace ramdisk::cli
