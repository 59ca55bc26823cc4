#pragma once

#include "RamDiskCore/Values/ByteCount.h"
#include "RamDiskCore/Values/EnumerationTable.h"

#include <cstdint>
#include <optional>
#include <string_view>

namespace ramdisk {

/// The formats that a RAM disk can carry. On a platform without one of them the adapter lays its nearest
/// counterpart, and a listed disk says what is really there.
enum class FileSystem { apfs, apfsCaseSensitive, hfsPlus, journaledHFSPlus, exFAT, fat32 };

/// How a file system tells names apart.
enum class NameComparison { exact, folded };

/// What holds for a format on every platform. What a platform lays for it is in a table of that platform's.
struct FileSystemFacts {
    FileSystem value;
    /// The stored and typed form.
    std::string_view name;
    /// The name in pickers and messages.
    std::string_view displayName;
    /// The name where room is short.
    std::string_view shortLabel;
    /// One line for the user who chooses.
    std::string_view description;
    /// The least size that the format can be laid on.
    std::uint64_t minimumMebibytes;
    /// The longest volume name, in characters.
    std::int64_t maximumNameLength;
    bool supportsEncryption;
    NameComparison nameComparison;
};

template <>
inline constexpr auto enumerators<FileSystem> = enumerationTable<FileSystemFacts>({
    {FileSystem::apfs, "apfs", "APFS", "APFS", "Modern, with clones and snapshots. Needed to encrypt.", 8,
     255, true, NameComparison::folded},
    {FileSystem::apfsCaseSensitive, "apfsx", "APFS (Case-sensitive)", "APFS-CS",
     "Distinguishes “File” from “file”. Good for build trees.", 8, 255, true, NameComparison::exact},
    {FileSystem::hfsPlus, "hfs+", "Mac OS Extended", "HFS+",
     "No journal - the lowest overhead, the fastest on a RAM disk.", 4, 255, false, NameComparison::folded},
    {FileSystem::journaledHFSPlus, "jhfs+", "Mac OS Extended (Journaled)", "JHFS+",
     "Classic Mac format with journaling.", 16, 255, false, NameComparison::folded},
    {FileSystem::exFAT, "exfat", "ExFAT", "ExFAT", "Cross-platform, handles large files.", 4, 15, false,
     NameComparison::folded},
    {FileSystem::fat32, "fat32", "MS-DOS (FAT32)", "FAT32", "Maximum compatibility, 4 GB file size limit.",
     64, 11, false, NameComparison::folded},
});

/// All formats, in the order in which pickers show them.
inline constexpr auto allFileSystems = allOf<FileSystem>();

[[nodiscard]] constexpr const FileSystemFacts& factsOf(FileSystem fileSystem) {
    return rowOf(enumerators<FileSystem>, fileSystem);
}

[[nodiscard]] constexpr std::optional<FileSystem> fileSystemFromRawValue(std::string_view raw) {
    return fromRawValue<FileSystem>(raw);
}

[[nodiscard]] constexpr std::string_view displayName(FileSystem fileSystem) {
    return factsOf(fileSystem).displayName;
}

[[nodiscard]] constexpr std::string_view shortLabel(FileSystem fileSystem) {
    return factsOf(fileSystem).shortLabel;
}

[[nodiscard]] constexpr std::string_view description(FileSystem fileSystem) {
    return factsOf(fileSystem).description;
}

[[nodiscard]] constexpr ByteCount minimumSize(FileSystem fileSystem) {
    return ByteCount::of(factsOf(fileSystem).minimumMebibytes, ByteCount::Unit::mebibyte);
}

[[nodiscard]] constexpr std::int64_t maximumNameLength(FileSystem fileSystem) {
    return factsOf(fileSystem).maximumNameLength;
}

[[nodiscard]] constexpr bool supportsEncryption(FileSystem fileSystem) {
    return factsOf(fileSystem).supportsEncryption;
}

[[nodiscard]] constexpr NameComparison nameComparison(FileSystem fileSystem) {
    return factsOf(fileSystem).nameComparison;
}

} // namespace ramdisk
