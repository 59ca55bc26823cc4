#pragma once

#include "RamDiskCore/Values/ByteCount.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace ramdisk {

/// The formats that a RAM disk can carry. On a platform without one of them the adapter lays its nearest
/// counterpart, and a listed disk says what is really there.
enum class FileSystem { apfs, apfsCaseSensitive, hfsPlus, journaledHFSPlus, exFAT, fat32 };

/// How a file system tells names apart.
enum class NameComparison { exact, folded };

/// All formats, in the order in which pickers show them.
inline constexpr std::array allFileSystems{FileSystem::apfs,    FileSystem::apfsCaseSensitive,
                                           FileSystem::hfsPlus, FileSystem::journaledHFSPlus,
                                           FileSystem::exFAT,   FileSystem::fat32};

/// The stored and typed form: "apfs", "apfsx", "hfs+", "jhfs+", "exfat", "fat32".
[[nodiscard]] std::string_view rawValue(FileSystem fileSystem);
[[nodiscard]] std::optional<FileSystem> fileSystemFromRawValue(std::string_view raw);

/// The name in pickers and messages, such as "APFS (Case-sensitive)".
[[nodiscard]] std::string_view displayName(FileSystem fileSystem);

/// The name where room is short, such as "APFS-CS".
[[nodiscard]] std::string_view shortLabel(FileSystem fileSystem);

/// One line for the user who chooses.
[[nodiscard]] std::string_view description(FileSystem fileSystem);

/// The least size that the format can be laid on.
[[nodiscard]] ByteCount minimumSize(FileSystem fileSystem);

/// The longest volume name, in characters.
[[nodiscard]] std::int64_t maximumNameLength(FileSystem fileSystem);

[[nodiscard]] bool supportsEncryption(FileSystem fileSystem);
[[nodiscard]] NameComparison nameComparison(FileSystem fileSystem);

} // namespace ramdisk
