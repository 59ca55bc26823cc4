#include "RamDiskInfrastructure/Linux/Trees/FileWriter.h"

#include "RamDiskInfrastructure/Linux/SystemCallError.h"
#include "RamDiskInfrastructure/Linux/Trees/ZeroBytes.h"

#include <algorithm>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ramdisk {

namespace {

constexpr std::size_t copyBufferSize = 256U << 10U;
constexpr std::size_t pageSize = 4096;
/// Of a large file the kernel is asked for so much before it is due, so that it reads while we write. Its own
/// guess is far less, which a loop device is slow to answer.
constexpr std::uint64_t readAhead = 8U << 20U;

} // namespace

FileWriter::FileWriter(ProgressMeter& meter) : meter_(meter), buffer_(copyBufferSize) {
    static_assert(copyBufferSize >= 2 * BlockHash::blockSize);
}

void FileWriter::fail(const char* doing) const {
    throw SystemCallError(doing, tree_->path(item_));
}

void FileWriter::copyWhole(const FileDescriptor& from, const FileDescriptor& to,
                           const TreeManifest::Contents& tree, std::uint32_t item) {
    from_ = from.get();
    to_ = to.get();
    tree_ = &tree;
    item_ = item;
    struct stat status {};
    if (::fstat(from_, &status) != 0) {
        fail("read");
    }
    if (status.st_blocks * 512 >= status.st_size) {
        copyRange(0, static_cast<std::uint64_t>(status.st_size));
        return;
    }
    if (::ftruncate(to_, status.st_size) != 0) {
        fail("write");
    }
    for (off_t place = 0; place < status.st_size;) {
        const auto data = ::lseek(from_, place, SEEK_DATA);
        if (data < 0 && errno == ENXIO) {
            break;
        }
        const auto hole = data < 0 ? data : ::lseek(from_, data, SEEK_HOLE);
        const auto start = data < 0 ? place : data;
        const auto end = std::min(hole < 0 ? status.st_size : hole, status.st_size);
        if (start >= end) {
            break;
        }
        copyRange(static_cast<std::uint64_t>(start), static_cast<std::uint64_t>(end));
        place = end;
    }
}

bool FileWriter::copyInKernel(std::uint64_t& start, std::uint64_t end) {
    while (kernelCopies_ && start < end) {
        auto in = static_cast<off_t>(start);
        auto out = in;
        const auto count = ::copy_file_range(from_, &in, to_, &out, end - start, 0);
        if (count == 0) {
            break;
        }
        if (count < 0) {
            if (errno == EINTR) {
                continue;
            }
            if (errno == ENOSPC || errno == EDQUOT || errno == EIO) {
                fail("write");
            }
            // Not between these two file systems.
            kernelCopies_ = false;
            break;
        }
        meter_.add(static_cast<std::uint64_t>(count), 0);
        start += static_cast<std::uint64_t>(count);
    }
    return start >= end;
}

void FileWriter::copyRange(std::uint64_t start, std::uint64_t end) {
    if (copyInKernel(start, end)) {
        return;
    }
    auto asked = end - start > copyBufferSize ? start : end;
    while (start < end) {
        if (asked < end && asked - std::min(asked, start) <= readAhead / 2) {
            const auto more = std::min(readAhead, end - asked);
            static_cast<void>(::posix_fadvise(from_, static_cast<off_t>(asked), static_cast<off_t>(more),
                                              POSIX_FADV_WILLNEED));
            asked += more;
        }
        const auto length =
            readAt(from_, buffer_.data(), std::min<std::uint64_t>(copyBufferSize, end - start), start);
        if (length == 0) {
            break;
        }
        writeAt(buffer_.data(), length, start);
        meter_.add(length, 0);
        start += length;
    }
}

void FileWriter::update(const FileDescriptor& from, const FileDescriptor& to,
                        const TreeManifest::Contents& source, std::uint32_t sourceItem,
                        const TreeManifest::Contents& target, std::uint32_t targetItem) {
    from_ = from.get();
    to_ = to.get();
    tree_ = &source;
    item_ = sourceItem;
    const auto& file = source.items[source.items[sourceItem].original];
    const auto& old = target.items[target.items[targetItem].original];
    if (file.size != old.size && ::ftruncate(to_, static_cast<off_t>(file.size)) != 0) {
        fail("write");
    }
    const auto* wanted = source.blocks.data() + file.firstBlock;
    const auto* const wantedEnd = wanted + file.blockCount;
    const auto* present = target.blocks.data() + old.firstBlock;
    const auto* const presentEnd = present + old.blockCount;
    while (wanted != wantedEnd || present != presentEnd) {
        const bool isWanted =
            wanted != wantedEnd && (present == presentEnd || wanted->block <= present->block);
        const bool isPresent =
            present != presentEnd && (wanted == wantedEnd || present->block <= wanted->block);
        const auto start = (isWanted ? wanted->block : present->block) * BlockHash::blockSize;
        if (start < file.size && isWanted && !(isPresent && *wanted == *present)) {
            const auto length = std::min<std::uint64_t>(BlockHash::blockSize, file.size - start);
            updateBlock(start, length, isPresent);
            meter_.add(length, 0);
        } else if (start < file.size && !isWanted) {
            makeHole(start, BlockHash::blockSize);
        }
        wanted += isWanted ? 1 : 0;
        present += isPresent ? 1 : 0;
    }
}

void FileWriter::updateBlock(std::uint64_t start, std::size_t length, bool mayHoldData) {
    char* const now = buffer_.data();
    char* const before = now + BlockHash::blockSize;
    const auto got = readAt(from_, now, length, start);
    const auto had = mayHoldData ? readAt(to_, before, got, start) : 0;
    std::memset(before + had, 0, got - had);
    std::size_t runStart = 0;
    std::size_t runEnd = 0;
    for (std::size_t page = 0; page < got; page += pageSize) {
        const auto size = std::min(pageSize, got - page);
        if (std::memcmp(now + page, before + page, size) == 0) {
            continue;
        }
        if (isAllZero(now + page, size)) {
            makeHole(start + page, pageSize);
            continue;
        }
        if (runEnd != page) {
            writeAt(now + runStart, runEnd - runStart, start + runStart);
            runStart = page;
        }
        runEnd = page + size;
    }
    writeAt(now + runStart, runEnd - runStart, start + runStart);
}

void FileWriter::makeHole(std::uint64_t start, std::uint64_t length) {
    if (::fallocate(to_, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, static_cast<off_t>(start),
                    static_cast<off_t>(length))
        == 0) {
        return;
    }
    if (errno != EOPNOTSUPP && errno != ENOSYS) {
        fail("write");
    }
    const auto size = tree_->items[tree_->items[item_].original].size;
    const std::vector<char> zeros(std::min(length, size - start));
    writeAt(zeros.data(), zeros.size(), start);
}

std::size_t FileWriter::readAt(int file, char* bytes, std::size_t length, std::uint64_t start) {
    std::size_t done = 0;
    while (done < length) {
        const auto count = ::pread(file, bytes + done, length - done, static_cast<off_t>(start + done));
        if (count == 0) {
            break;
        }
        if (count < 0 && errno != EINTR) {
            fail("read");
        }
        done += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    return done;
}

void FileWriter::writeAt(const char* bytes, std::size_t length, std::uint64_t start) {
    std::size_t done = 0;
    while (done < length) {
        const auto count = ::pwrite(to_, bytes + done, length - done, static_cast<off_t>(start + done));
        if (count < 0 && errno != EINTR) {
            fail("write");
        }
        done += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
}

} // namespace ramdisk
