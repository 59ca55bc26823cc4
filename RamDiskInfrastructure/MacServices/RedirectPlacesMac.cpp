#include "RamDiskCore/Values/Text.h"
#include "RamDiskInfrastructure/Redirects/RedirectPlaces.h"

namespace ramdisk {

namespace {

struct CacheFolder {
    KnownCache value;
    const char* folder;
};

constexpr auto cacheFolders = enumerationTable<CacheFolder>({
    {KnownCache::swiftPM, "Library/Caches/org.swift.swiftpm"},
    {KnownCache::cocoaPods, "Library/Caches/CocoaPods"},
    {KnownCache::gradle, ".gradle/caches"},
    {KnownCache::pip, "Library/Caches/pip"},
    {KnownCache::cargo, ".cargo/registry"},
    {KnownCache::homebrew, "Library/Caches/Homebrew"},
    {KnownCache::chrome, "Library/Caches/Google/Chrome"},
});

} // namespace

std::filesystem::path folderOfCache(KnownCache cache) {
    return rowOf(cacheFolders, cache).folder;
}

std::filesystem::path comparableFolder(const std::filesystem::path& relative) {
    std::filesystem::path folded;
    for (const auto& component : relative) {
        folded /= foldedName(component.string());
    }
    return folded;
}

} // namespace ramdisk
