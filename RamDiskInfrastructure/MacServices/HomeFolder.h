#pragma once

#include <filesystem>

namespace ramdisk {

/// HOME where it is set, as everything else of the session sees it; else the account's folder.
/// @throws std::runtime_error when there is neither, or HOME is not an absolute path.
[[nodiscard]] std::filesystem::path homeFolder();

/// Where this system keeps its lists and saved contents.
/// @throws as `homeFolder`.
[[nodiscard]] inline std::filesystem::path applicationSupportFolder() {
    return homeFolder() / "Library/Application Support/Tavrin RamDisk";
}

} // namespace ramdisk
