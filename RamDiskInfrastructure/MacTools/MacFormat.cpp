#include "RamDiskInfrastructure/MacTools/MacFormat.h"

#include "RamDiskCore/Values/Text.h"

#include <algorithm>

namespace ramdisk {

namespace {

/// What a format is to macOS and its tools.
struct MacFormat {
    FileSystem value;
    std::string_view name;
    std::string_view mountType;
    /// What tells it from others of the same mount type; absent where nothing needs to.
    std::optional<CaseSensitivity> names = std::nullopt;
    std::optional<Journaling> journaling = std::nullopt;
};

constexpr auto macFormats = enumerationTable<MacFormat>({
    {FileSystem::apfs, "APFS", "apfs", CaseSensitivity::insensitive},
    {FileSystem::apfsCaseSensitive, "APFSX", "apfs", CaseSensitivity::sensitive},
    {FileSystem::hfsPlus, "HFS+", "hfs", CaseSensitivity::insensitive, Journaling::off},
    {FileSystem::journaledHFSPlus, "JHFS+", "hfs", CaseSensitivity::insensitive, Journaling::on},
    {FileSystem::exFAT, "ExFAT", "exfat"},
    {FileSystem::fat32, "FAT32", "msdos"},
});

} // namespace

std::string_view diskUtilName(FileSystem fileSystem) {
    return rowOf(macFormats, fileSystem).name;
}

std::string volumeNameFor(FileSystem fileSystem, const std::string& name) {
    return fileSystem == FileSystem::fat32 ? upperCased(name) : name;
}

std::optional<FileSystem> fileSystemOfMountType(std::string_view type, CaseSensitivity names,
                                                Journaling journaling) {
    const auto found = std::find_if(macFormats.begin(), macFormats.end(), [&](const MacFormat& format) {
        return format.mountType == type && format.names.value_or(names) == names
               && format.journaling.value_or(journaling) == journaling;
    });
    return found == macFormats.end() ? std::nullopt : std::optional(found->value);
}

} // namespace ramdisk
