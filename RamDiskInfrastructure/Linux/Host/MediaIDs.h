#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string_view>

namespace ramdisk {

/// Identifiers of media. Unlike device numbers and names, they are never used again.
struct MediaIDs {
    /// The sequence number of a block device such as "loop3". It increases whenever new media are put behind
    /// the device.
    [[nodiscard]] static std::optional<std::uint64_t> identifier(std::string_view blockDevice,
                                                                 const std::filesystem::path& sys = "/sys");

    /// The identifier of the medium that `location` lies on: that of its block device, or of the mount if
    /// there is no block device. Absent on kernels that have neither number.
    [[nodiscard]] static std::optional<std::uint64_t> identifierAt(const std::filesystem::path& location);
};

} // namespace ramdisk
