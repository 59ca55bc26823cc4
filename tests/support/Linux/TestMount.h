#pragma once

#include "tests/support/Testing.h"

#include <sys/mount.h>

namespace ramdisk::test {

/// A mount on a folder, as long as this object exists. Only root can make one. There must be a TestMachine
/// meanwhile, which hides the mount from everybody else.
class TestMount {
public:
    /// Makes the folder when it is missing.
    TestMount(const char* source, std::filesystem::path folder, const char* type, unsigned long flags,
              const char* options = nullptr)
        : folder_(std::move(folder)) {
        std::filesystem::create_directories(folder_);
        if (mount(source, folder_.c_str(), type, flags, options) != 0) {
            throw std::runtime_error("could not mount");
        }
    }
    TestMount(const TestMount&) = delete;
    TestMount& operator=(const TestMount&) = delete;
    ~TestMount() { umount2(folder_.c_str(), MNT_DETACH); }

private:
    std::filesystem::path folder_;
};

class TmpfsMount : public TestMount {
public:
    explicit TmpfsMount(std::filesystem::path folder, const char* options = nullptr)
        : TestMount("tests", std::move(folder), "tmpfs", 0, options) {}
};

} // namespace ramdisk::test
