#pragma once

#include "RamDiskCore/Values/ByteCount.h"
#include "RamDiskInfrastructure/Commands/FileDescriptor.h"

#include <atomic>
#include <thread>

namespace ramdisk {

/// Has the kernel read a sparse file from its beginning to its end while others read it in whatever order
/// they need it: one stream instead of many small reads. Ends with this object, whether or not it is through.
class ReadAhead {
public:
    /// Reads `most` bytes at the most, which should fit into memory beside everything else. The file stays
    /// the caller's and open while this lives.
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
