#pragma once

#include "RamDiskCore/Redirects/RedirectFailure.h"
#include "RamDiskCore/Values/RamDisk.h"
#include "RamDiskCore/Values/RamDiskError.h"

#include <vector>

namespace ramdisk {

/// What happened to the startup disks at quit. A disk that could not be saved is not ejected.
struct ShutdownReport {
    struct Failure {
        RamDisk ramDisk;
        RamDiskError error;
        friend bool operator==(const Failure&, const Failure&) = default;
    };

    /// The disks whose files are in their saved copies now.
    std::vector<RamDisk> saved;
    std::vector<RamDisk> ejected;
    std::vector<Failure> saveFailures;
    std::vector<Failure> ejectFailures;
    /// Folders that are not back in their place, and what else the user should know of redirects.
    std::vector<RedirectFailure> redirectFailures{};

    [[nodiscard]] bool needsAttention() const noexcept {
        return !saveFailures.empty() || !ejectFailures.empty() || !redirectFailures.empty();
    }

    friend bool operator==(const ShutdownReport&, const ShutdownReport&) = default;
};

} // namespace ramdisk
