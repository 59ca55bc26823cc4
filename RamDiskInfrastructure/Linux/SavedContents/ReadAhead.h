#pragma once

#include "RamDiskCore/Values/ByteCount.h"
#include "RamDiskInfrastructure/Commands/FileDescriptor.h"

#include <atomic>
#include <thread>

namespace ramdisk {

/// Makes the kernel read a sparse file from beginning to end, while others read it in any order: one stream
/// instead of many small reads. It ends with this object, finished or not.
class ReadAhead {
public:
    /// Reads at most `most` bytes, which should fit into memory beside everything else. The caller keeps the
    /// file, and must leave it open as long as this object exists.
    ReadAhead(const FileDescriptor& file, ByteCount most);
    ReadAhead(const ReadAhead&) = delete;
    ReadAhead& operator=(const ReadAhead&) = delete;
    ~ReadAhead();

private:
    void run(int file, std::uint64_t most) const;

    std::atomic<bool> isOver_ = false;
    std::thread thread_;
};

} // namespace ramdisk
