#pragma once

#include <cstddef>
#include <cstring>

#include <sys/stat.h>

namespace ramdisk {

/// Whether the `length` bytes, at least one, are all zero, as they are in a hole.
[[nodiscard]] inline bool isAllZero(const char* bytes, std::size_t length) {
    return bytes[0] == 0 && std::memcmp(bytes, bytes + 1, length - 1) == 0;
}

/// Whether a file takes less space than its length.
[[nodiscard]] inline bool hasHoles(const struct stat& status) {
    return status.st_blocks * 512 < status.st_size;
}

} // namespace ramdisk
