#pragma once

#include <cstdint>
#include <functional>

namespace ramdisk {

/// How far a copy has come. The totals are zero while they are not known.
struct TransferProgress {
    std::uint64_t bytes = 0;
    std::uint64_t totalBytes = 0;
    std::uint64_t files = 0;
    std::uint64_t totalFiles = 0;

    friend bool operator==(const TransferProgress&, const TransferProgress&) = default;
};

/// Told now and then while a copy runs, from any thread but never from two at once. May be empty.
using ProgressObserver = std::function<void(const TransferProgress&)>;

} // namespace ramdisk
