#pragma once

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>

namespace ramdisk::test {

/// The contents of the file, byte for byte; empty when it cannot be read.
inline std::string readFile(const std::filesystem::path& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

inline void writeFile(const std::filesystem::path& path, std::string_view text) {
    std::ofstream(path, std::ios::binary) << text << std::flush;
}

} // namespace ramdisk::test
