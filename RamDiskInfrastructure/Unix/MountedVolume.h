#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace ramdisk {

/// Identifies a mounted volume without its path, so that a later check can tell whether the path still leads
/// to the same medium.
struct MountedVolume {
    /// The type as the operating system's mount table has it, such as "apfs" or "tmpfs".
    std::string fileSystem;
    /// The identifier of the attachment that the volume lies on. No other attachment ever gets it.
    std::optional<std::uint64_t> media;

    /// The volume at `location`; absent when the path is on no mounted file system.
    [[nodiscard]] static std::optional<MountedVolume> at(const std::filesystem::path& location);

    friend bool operator==(const MountedVolume&, const MountedVolume&) = default;
};

} // namespace ramdisk
