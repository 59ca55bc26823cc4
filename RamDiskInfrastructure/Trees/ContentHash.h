#pragma once

#include <cstddef>
#include <cstdint>

namespace ramdisk {

/// A hash that tells contents apart: XXH3 with 128 bits, the same on every processor.
struct ContentHash {
    std::uint64_t low = 0;
    std::uint64_t high = 0;

    friend bool operator==(const ContentHash&, const ContentHash&) = default;
};

[[nodiscard]] ContentHash contentHash(const char* bytes, std::size_t length);

} // namespace ramdisk
