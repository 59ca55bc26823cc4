#pragma once

#include "RamDiskCore/Ports/Port.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace ramdisk {

/// A process that keeps a volume busy. Identified by its process ID.
struct VolumeUser {
    std::int32_t processID = 0;
    /// The process's command name.
    std::string name;

    friend bool operator==(const VolumeUser&, const VolumeUser&) = default;
};

/// Tells which processes hold files open on a volume.
class VolumeUsersListing : public Port {
public:
    /// Each process once, in the order in which it was found; empty when nobody uses the volume. Processes
    /// that the caller may not look into are not seen.
    /// @throws the error of the tool or of the system call that failed.
    [[nodiscard]] virtual std::vector<VolumeUser> users(const std::filesystem::path& mountPoint) = 0;
};

} // namespace ramdisk
