#include "RamDiskCore/Values/Text.h"
#include "RamDiskInfrastructure/Redirects/RedirectPlaces.h"

#include <array>
#include <cstddef>

namespace ramdisk {

namespace {

/// In the order of `KnownCache`.
constexpr std::array<const char*, allKnownCaches.size()> folders{
    "Library/Caches/org.swift.swiftpm",
    "Library/Caches/CocoaPods",
    ".gradle/caches",
    "Library/Caches/pip",
    ".cargo/registry",
    "Library/Caches/Homebrew",
    "Library/Caches/Google/Chrome",
};

} // namespace

std::filesystem::path folderOfCache(KnownCache cache) {
    return folders.at(static_cast<std::size_t>(cache));
}

std::filesystem::path comparableFolder(const std::filesystem::path& relative) {
    std::filesystem::path folded;
    for (const auto& component : relative) {
        folded /= foldedName(component.string());
    }
    return folded;
}

} // namespace ramdisk
