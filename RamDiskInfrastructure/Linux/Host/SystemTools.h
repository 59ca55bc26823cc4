#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace ramdisk {

/// The path of an administrator's tool. Absent when it is not installed. The user's PATH is ignored, since
/// the tool runs with the right to mount.
[[nodiscard]] std::optional<std::filesystem::path> findSystemTool(std::string_view name);

/// Whether the kernel lists this file system type now. A type whose module is not loaded yet is missing, so a
/// caller loads the module and asks again.
[[nodiscard]] bool kernelListsFileSystem(std::string_view type, const std::filesystem::path& proc);

} // namespace ramdisk
