#pragma once

#include "RamDiskCore/Values/EnumerationTable.h"

#include <optional>
#include <string_view>

namespace ramdisk {

/// The caches of developer tools and browsers that users can name by the tool. Where a cache lies differs
/// between platforms; the adapters know it.
enum class KnownCache {
    swiftPM,
    cocoaPods,
    gradle,
    pip,
    cargo,
    homebrew,
    chrome,
    ccache,
    sccache,
    goBuild,
    yarn,
    pnpm,
    maven,
    firefox,
    ruff,
    mypy
};

template <>
inline constexpr auto enumerators<KnownCache> = enumerationTable<Named<KnownCache>>({
    {KnownCache::swiftPM, "swiftPM"},
    {KnownCache::cocoaPods, "cocoaPods"},
    {KnownCache::gradle, "gradle"},
    {KnownCache::pip, "pip"},
    {KnownCache::cargo, "cargo"},
    {KnownCache::homebrew, "homebrew"},
    {KnownCache::chrome, "chrome"},
    {KnownCache::ccache, "ccache"},
    {KnownCache::sccache, "sccache"},
    {KnownCache::goBuild, "go-build"},
    {KnownCache::yarn, "yarn"},
    {KnownCache::pnpm, "pnpm"},
    {KnownCache::maven, "maven"},
    {KnownCache::firefox, "firefox"},
    {KnownCache::ruff, "ruff"},
    {KnownCache::mypy, "mypy"},
});

inline constexpr auto allKnownCaches = allOf<KnownCache>();

[[nodiscard]] constexpr std::optional<KnownCache> knownCacheFromRawValue(std::string_view raw) {
    return fromRawValue<KnownCache>(raw);
}

/// Whether stored lists hold the cache by its name. The others are stored as the folder that they are: a
/// version that does not know their names can read it and put the original back.
[[nodiscard]] constexpr bool isStoredByName(KnownCache cache) {
    return cache <= KnownCache::chrome;
}

} // namespace ramdisk
