#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace ramdisk {

/// Where an administrator's tool is installed; absent when it is not. The user's PATH has no say in what is
/// run with the right to mount.
[[nodiscard]] std::optional<std::filesystem::path> findSystemTool(std::string_view name);

/// Whether the kernel can mount this type, after it was asked to load the module for it.
[[nodiscard]] bool kernelListsFileSystem(std::string_view type, const std::filesystem::path& proc);

} // namespace ramdisk
