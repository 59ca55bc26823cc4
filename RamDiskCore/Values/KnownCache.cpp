#include "RamDiskCore/Values/KnownCache.h"

#include <cstddef>

namespace ramdisk {

namespace {

constexpr std::array<std::string_view, allKnownCaches.size()> names{"swiftPM", "cocoaPods", "gradle", "pip",
                                                                    "cargo",   "homebrew",  "chrome"};

} // namespace

std::string_view rawValue(KnownCache cache) {
    return names.at(static_cast<std::size_t>(cache));
}

std::optional<KnownCache> knownCacheFromRawValue(std::string_view raw) {
    for (const auto cache : allKnownCaches) {
        if (rawValue(cache) == raw) {
            return cache;
        }
    }
    return std::nullopt;
}

} // namespace ramdisk
