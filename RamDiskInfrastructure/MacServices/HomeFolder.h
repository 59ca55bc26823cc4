#pragma once

#include <filesystem>

namespace ramdisk {

/// HOME where it is set, as everything else of the session sees it; else the account's folder.
/// @throws std::runtime_error when there is neither, or HOME is not an absolute path.
[[nodiscard]] std::filesystem::path homeFolder();

} // namespace ramdisk
