#include "RamDiskCore/Values/FileSystem.h"

#include <algorithm>
#include <cstddef>

namespace ramdisk {

namespace {

struct Traits {
    std::string_view rawValue;
    std::string_view displayName;
    std::string_view shortLabel;
    std::string_view description;
    std::uint64_t minimumMebibytes;
    std::int64_t maximumNameLength;
    bool supportsEncryption;
    NameComparison nameComparison;
};

// In the order of the enumeration.
constexpr std::array<Traits, allFileSystems.size()> traits{{
    {"apfs", "APFS", "APFS", "Modern, with clones and snapshots. Needed to encrypt.", 8, 255, true,
     NameComparison::folded},
    {"apfsx", "APFS (Case-sensitive)", "APFS-CS", "Distinguishes “File” from “file”. Good for build trees.",
     8, 255, true, NameComparison::exact},
    {"hfs+", "Mac OS Extended", "HFS+", "No journal - the lowest overhead, the fastest on a RAM disk.", 4,
     255, false, NameComparison::folded},
    {"jhfs+", "Mac OS Extended (Journaled)", "JHFS+", "Classic Mac format with journaling.", 16, 255, false,
     NameComparison::folded},
    {"exfat", "ExFAT", "ExFAT", "Cross-platform, handles large files.", 4, 15, false, NameComparison::folded},
    {"fat32", "MS-DOS (FAT32)", "FAT32", "Maximum compatibility, 4 GB file size limit.", 64, 11, false,
     NameComparison::folded},
}};

const Traits& traitsOf(FileSystem fileSystem) {
    return traits.at(static_cast<std::size_t>(fileSystem));
}

} // namespace

std::string_view rawValue(FileSystem fileSystem) {
    return traitsOf(fileSystem).rawValue;
}

std::optional<FileSystem> fileSystemFromRawValue(std::string_view raw) {
    const auto found = std::find_if(allFileSystems.begin(), allFileSystems.end(),
                                    [raw](FileSystem fileSystem) { return rawValue(fileSystem) == raw; });
    return found == allFileSystems.end() ? std::nullopt : std::optional(*found);
}

std::string_view displayName(FileSystem fileSystem) {
    return traitsOf(fileSystem).displayName;
}

std::string_view shortLabel(FileSystem fileSystem) {
    return traitsOf(fileSystem).shortLabel;
}

std::string_view description(FileSystem fileSystem) {
    return traitsOf(fileSystem).description;
}

ByteCount minimumSize(FileSystem fileSystem) {
    return ByteCount::of(traitsOf(fileSystem).minimumMebibytes, ByteCount::Unit::mebibyte);
}

std::int64_t maximumNameLength(FileSystem fileSystem) {
    return traitsOf(fileSystem).maximumNameLength;
}

bool supportsEncryption(FileSystem fileSystem) {
    return traitsOf(fileSystem).supportsEncryption;
}

NameComparison nameComparison(FileSystem fileSystem) {
    return traitsOf(fileSystem).nameComparison;
}

} // namespace ramdisk
