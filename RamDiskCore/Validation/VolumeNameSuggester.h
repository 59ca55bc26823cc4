#pragma once

#include <span>
#include <string>
#include <string_view>

namespace ramdisk {

/// Finds a free name for a new disk.
struct VolumeNameSuggester {
    /// `base` when no name in `taken` equals it, else the first of "base 2", "base 3" ... that is free.
    [[nodiscard]] static std::string suggest(std::string_view base, std::span<const std::string> taken);
};

} // namespace ramdisk
