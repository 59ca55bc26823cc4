#pragma once

#include <string>

namespace ramdisk {

/// Our texts are worded for macOS. Where the platform has something else, or nothing of the kind, this puts
/// its words for it.
[[nodiscard]] std::string withPlatformWords(std::string text);

} // namespace ramdisk
