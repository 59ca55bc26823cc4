#pragma once

#include "RamDiskInfrastructure/Commands/FileDescriptor.h"

#include <thread>

namespace ramdisk {

/// Has the kernel write what a file system has in memory while the caller does something else, so that less
/// is left for the flush that counts. What fails here is told by that one.
class EarlyFlush {
public:
    /// Begins, with the file system of an open folder. Holds it open until it is destroyed.
    explicit EarlyFlush(const FileDescriptor& folder);
    EarlyFlush(const EarlyFlush&) = delete;
    EarlyFlush& operator=(const EarlyFlush&) = delete;
    /// Waits for the end.
    ~EarlyFlush();

private:
    /// Its own, since the kernel tells each open folder of an error once.
    FileDescriptor folder_;
    std::thread thread_;
};

} // namespace ramdisk
