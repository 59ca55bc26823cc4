#pragma once

#include "tests/support/Files.h"

#include <filesystem>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>

#include <stdlib.h> // NOLINT: mkdtemp
#include <unistd.h>

namespace ramdisk::test {

/// A folder that is removed with this object. It lies in memory where possible, so that flushing costs
/// nothing.
class ScratchFolder {
public:
    ScratchFolder() {
        std::string name = access("/dev/shm", W_OK) == 0
                               ? "/dev/shm/ramdisk-test-XXXXXX"
                               : (std::filesystem::temp_directory_path() / "ramdisk-test-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("no scratch folder");
        }
        path_ = name;
    }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;
    ~ScratchFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    [[nodiscard]] const std::filesystem::path& path() const noexcept { return path_; }

    /// The names of the items in the folder, including hidden ones.
    [[nodiscard]] std::set<std::string> names() const {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(path_)) {
            names.insert(entry.path().filename().string());
        }
        return names;
    }

    void write(const std::string& name, std::string_view text) const { writeFile(path_ / name, text); }
    [[nodiscard]] std::string read(const std::string& name) const { return readFile(path_ / name); }

private:
    std::filesystem::path path_;
};

} // namespace ramdisk::test
