#pragma once

#include "RamDiskCore/Values/KnownCache.h"

#include <filesystem>

/// Where caches lie when nobody moves them. Stored lists hold some caches as these folders.
namespace ramdisk {

/// How home folders are laid out.
enum class HomeLayout {
    /// Caches lie in ".cache", unless XDG_CACHE_HOME names another folder.
    xdg,
    /// Caches lie in "Library/Caches".
    library
};

/// The layout on this platform, which implements this.
[[nodiscard]] HomeLayout homeLayout();

/// Where the cache lies when no variable moves it, relative to the home folder.
[[nodiscard]] std::filesystem::path folderOfCache(KnownCache cache, HomeLayout layout = homeLayout());

} // namespace ramdisk
