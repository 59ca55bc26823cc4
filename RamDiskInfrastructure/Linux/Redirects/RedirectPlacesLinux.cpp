#include "RamDiskInfrastructure/Redirects/RedirectPlaces.h"

#include <array>
#include <cstddef>

namespace ramdisk {

namespace {

/// In the order of `KnownCache`.
constexpr std::array<const char*, allKnownCaches.size()> folders{
    ".cache/org.swift.swiftpm", ".cache/CocoaPods", ".gradle/caches",       ".cache/pip",
    ".cargo/registry",          ".cache/Homebrew",  ".cache/google-chrome",
};

} // namespace

std::filesystem::path folderOfCache(KnownCache cache) {
    return folders.at(static_cast<std::size_t>(cache));
}

std::filesystem::path comparableFolder(const std::filesystem::path& relative) {
    return relative;
}

} // namespace ramdisk
