#pragma once

#include "RamDiskCore/Values/EnumerationTable.h"

#include <optional>
#include <string_view>

namespace ramdisk {

/// The caches of developer tools and browsers that users can name by the tool. Where a cache lies differs
/// between platforms; the adapters know it.
enum class KnownCache { swiftPM, cocoaPods, gradle, pip, cargo, homebrew, chrome };

template <>
inline constexpr auto enumerators<KnownCache> = enumerationTable<Named<KnownCache>>({
    {KnownCache::swiftPM, "swiftPM"},
    {KnownCache::cocoaPods, "cocoaPods"},
    {KnownCache::gradle, "gradle"},
    {KnownCache::pip, "pip"},
    {KnownCache::cargo, "cargo"},
    {KnownCache::homebrew, "homebrew"},
    {KnownCache::chrome, "chrome"},
});

inline constexpr auto allKnownCaches = allOf<KnownCache>();

[[nodiscard]] constexpr std::optional<KnownCache> knownCacheFromRawValue(std::string_view raw) {
    return fromRawValue<KnownCache>(raw);
}

} // namespace ramdisk
