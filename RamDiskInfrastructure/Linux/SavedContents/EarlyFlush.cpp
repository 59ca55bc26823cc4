#include "RamDiskInfrastructure/Linux/SavedContents/EarlyFlush.h"

#include <system_error>

#include <fcntl.h>
#include <unistd.h>

namespace ramdisk {

EarlyFlush::EarlyFlush(const FileDescriptor& folder)
    : folder_(openat(folder.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    if (!folder_) {
        return;
    }
    try {
        thread_ = std::thread([number = folder_.get()] { static_cast<void>(syncfs(number)); });
    } catch (const std::system_error&) { // NOLINT(bugprone-empty-catch)
        // Without a thread everything is written later.
    }
}

EarlyFlush::~EarlyFlush() {
    if (thread_.joinable()) {
        thread_.join();
    }
}

} // namespace ramdisk
