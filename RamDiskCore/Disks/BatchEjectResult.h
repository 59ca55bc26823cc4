#pragma once

#include "RamDiskCore/Ports/RamDeviceAllocating.h"
#include "RamDiskCore/Values/RamDisk.h"
#include "RamDiskCore/Values/RamDiskError.h"

#include <vector>

namespace ramdisk {

/// What happened to every disk of a batch, in the order in which they were tried.
struct BatchEjectResult {
    struct Failure {
        RamDisk ramDisk;
        RamDiskError error;
        friend bool operator==(const Failure&, const Failure&) = default;
    };

    std::vector<RamDisk> ejected;
    std::vector<Failure> failures;
    /// What is still true about each of `ejected`, in the same order.
    std::vector<ReleaseOutcome> outcomes;

    friend bool operator==(const BatchEjectResult&, const BatchEjectResult&) = default;
};

} // namespace ramdisk
