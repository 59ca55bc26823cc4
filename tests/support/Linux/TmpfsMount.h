#pragma once

#include <filesystem>
#include <stdexcept>
#include <utility>

#include <sys/mount.h>

namespace ramdisk::test {

/// A tmpfs that is mounted as long as this lives. Only root can make one.
class TmpfsMount {
public:
    /// Makes the folder when it is missing.
    explicit TmpfsMount(std::filesystem::path folder, const char* options = nullptr)
        : folder_(std::move(folder)) {
        std::filesystem::create_directories(folder_);
        if (mount("tests", folder_.c_str(), "tmpfs", 0, options) != 0) {
            throw std::runtime_error("could not mount");
        }
    }
    TmpfsMount(const TmpfsMount&) = delete;
    TmpfsMount& operator=(const TmpfsMount&) = delete;
    ~TmpfsMount() { umount2(folder_.c_str(), MNT_DETACH); }

private:
    std::filesystem::path folder_;
};

} // namespace ramdisk::test
