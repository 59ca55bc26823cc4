#include "RamDiskInfrastructure/Redirects/RedirectPlaces.h"

namespace ramdisk {

namespace {

struct CacheFolder {
    KnownCache value;
    const char* folder;
};

constexpr auto cacheFolders = enumerationTable<CacheFolder>({
    {KnownCache::swiftPM, ".cache/org.swift.swiftpm"},
    {KnownCache::cocoaPods, ".cache/CocoaPods"},
    {KnownCache::gradle, ".gradle/caches"},
    {KnownCache::pip, ".cache/pip"},
    {KnownCache::cargo, ".cargo/registry"},
    {KnownCache::homebrew, ".cache/Homebrew"},
    {KnownCache::chrome, ".cache/google-chrome"},
});

} // namespace

std::filesystem::path folderOfCache(KnownCache cache) {
    return rowOf(cacheFolders, cache).folder;
}

std::filesystem::path comparableFolder(const std::filesystem::path& relative) {
    return relative;
}

} // namespace ramdisk
