#include "RamDiskInfrastructure/Linux/SavedContents/ReadAhead.h"

#include <algorithm>

#include <fcntl.h>
#include <unistd.h>

namespace ramdisk {

namespace {

/// The kernel is asked for so much at a time, and waited for while its queue is full.
constexpr off_t step = off_t{4} << 20U;

} // namespace

ReadAhead::ReadAhead(const FileDescriptor& file, ByteCount most)
    : thread_([this, number = file.get(), most] { run(number, most.bytes); }) {}

ReadAhead::~ReadAhead() {
    isOver_ = true;
    thread_.join();
}

void ReadAhead::run(int file, std::uint64_t most) const {
    std::uint64_t asked = 0;
    for (off_t from = lseek(file, 0, SEEK_DATA); from >= 0; from = lseek(file, from, SEEK_DATA)) {
        const off_t end = lseek(file, from, SEEK_HOLE);
        while (from < end) {
            if (isOver_ || asked >= most) {
                return;
            }
            const auto length = std::min(step, end - from);
            if (posix_fadvise(file, from, length, POSIX_FADV_WILLNEED) != 0) {
                return;
            }
            from += length;
            asked += static_cast<std::uint64_t>(length);
        }
    }
}

} // namespace ramdisk
