#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string_view>

namespace ramdisk {

/// Identifiers of media that are not given out twice, unlike device numbers and names.
struct MediaIDs {
    /// The sequence number of a block device such as "loop3", counted up whenever new media are put behind
    /// it.
    [[nodiscard]] static std::optional<std::uint64_t> identifier(std::string_view blockDevice,
                                                                 const std::filesystem::path& sys = "/sys");

    /// The identifier of the medium that `location` lies on: of its block device, or of the mount where there
    /// is none. Absent on kernels that number neither.
    [[nodiscard]] static std::optional<std::uint64_t> identifierAt(const std::filesystem::path& location);
};

} // namespace ramdisk
