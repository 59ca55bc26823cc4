#pragma once

#include <filesystem>

namespace ramdisk {

/// HOME if it is set, as for everything else in the session; otherwise the account's folder.
/// @throws std::runtime_error when there is neither, or HOME is not an absolute path.
[[nodiscard]] std::filesystem::path homeFolder();

/// Where this system keeps its lists and saved contents.
/// @throws as `homeFolder`.
[[nodiscard]] inline std::filesystem::path applicationSupportFolder() {
    return homeFolder() / "Library/Application Support/Tavrin RamDisk";
}

} // namespace ramdisk
