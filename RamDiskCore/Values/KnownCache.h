#pragma once

#include <array>
#include <optional>
#include <string_view>

namespace ramdisk {

/// The caches of developer tools and browsers that users can name by the tool. Where a cache lies differs
/// between platforms; the adapters know it.
enum class KnownCache { swiftPM, cocoaPods, gradle, pip, cargo, homebrew, chrome };

inline constexpr std::array allKnownCaches{KnownCache::swiftPM, KnownCache::cocoaPods, KnownCache::gradle,
                                           KnownCache::pip,     KnownCache::cargo,     KnownCache::homebrew,
                                           KnownCache::chrome};

/// The stored and typed form: the enumerator's name.
[[nodiscard]] std::string_view rawValue(KnownCache cache);
[[nodiscard]] std::optional<KnownCache> knownCacheFromRawValue(std::string_view raw);

} // namespace ramdisk
