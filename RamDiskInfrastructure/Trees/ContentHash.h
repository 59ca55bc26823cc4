#pragma once

#include <cstddef>
#include <cstdint>

namespace ramdisk {

/// What contents are told apart by: XXH3 of 128 bits, on every processor the same.
struct ContentHash {
    std::uint64_t low = 0;
    std::uint64_t high = 0;

    friend bool operator==(const ContentHash&, const ContentHash&) = default;
};

[[nodiscard]] ContentHash contentHash(const char* bytes, std::size_t length);

} // namespace ramdisk
