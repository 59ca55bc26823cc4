#include "RamDiskInfrastructure/Stores/CacheFolders.h"

namespace ramdisk {

namespace {

struct CacheFolder {
    KnownCache value;
    const char* xdg;
    const char* library;
};

constexpr auto cacheFolders = enumerationTable<CacheFolder>({
    {KnownCache::swiftPM, ".cache/org.swift.swiftpm", "Library/Caches/org.swift.swiftpm"},
    {KnownCache::cocoaPods, ".cache/CocoaPods", "Library/Caches/CocoaPods"},
    {KnownCache::gradle, ".gradle/caches", ".gradle/caches"},
    {KnownCache::pip, ".cache/pip", "Library/Caches/pip"},
    {KnownCache::cargo, ".cargo/registry", ".cargo/registry"},
    {KnownCache::homebrew, ".cache/Homebrew", "Library/Caches/Homebrew"},
    {KnownCache::chrome, ".cache/google-chrome", "Library/Caches/Google/Chrome"},
    {KnownCache::ccache, ".cache/ccache", "Library/Caches/ccache"},
    {KnownCache::sccache, ".cache/sccache", "Library/Caches/Mozilla.sccache"},
    {KnownCache::goBuild, ".cache/go-build", "Library/Caches/go-build"},
    {KnownCache::yarn, ".cache/yarn", "Library/Caches/Yarn"},
    {KnownCache::pnpm, ".local/share/pnpm/store", "Library/pnpm/store"},
    {KnownCache::maven, ".m2/repository", ".m2/repository"},
    {KnownCache::firefox, ".cache/mozilla/firefox", "Library/Caches/Firefox"},
    {KnownCache::ruff, ".cache/ruff", "Library/Caches/ruff"},
    {KnownCache::mypy, ".cache/mypy", "Library/Caches/mypy"},
});

} // namespace

std::filesystem::path folderOfCache(KnownCache cache, HomeLayout layout) {
    const auto& row = rowOf(cacheFolders, cache);
    return layout == HomeLayout::xdg ? row.xdg : row.library;
}

} // namespace ramdisk
