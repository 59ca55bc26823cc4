#include "RamDiskInfrastructure/Trees/FileWriter.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/Trees/ZeroBytes.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ramdisk {

namespace {

constexpr std::size_t copyBufferSize = 256U << 10U;
constexpr std::size_t pageSize = 4096;
/// Memory is handed to a device in pieces that are whole: a huge page is one, where small pages are 512,
/// which took a virtual disk more than twice as long.
constexpr std::size_t hugePageSize = 2U << 20U;
/// Of what goes past the page cache, so that the device is asked for much at a time.
constexpr std::size_t directBufferSize = hugePageSize;
/// Of a large file the kernel is asked for so much before it is due, so that it reads while we write. Its own
/// guess is far less, which a loop device is slow to answer.
constexpr std::uint64_t readAhead = 8U << 20U;
/// After so many blocks without anything of the old ones the next are taken for the same.
constexpr int manyBlocks = 4;

const TreeItem& originalOf(FileWriter::Item item) {
    return item.tree.items[item.tree.items[item.number].original];
}

/// The hashes of the blocks of the part.
std::pair<const BlockHash*, const BlockHash*> blocksIn(FileWriter::Item item, FileWriter::Part part) {
    const auto& file = originalOf(item);
    const auto* const first = item.tree.blocks.data() + file.firstBlock;
    const auto at = [&](std::uint64_t place) {
        const auto block = (place + BlockHash::blockSize - 1) / BlockHash::blockSize;
        return std::partition_point(first, first + file.blockCount,
                                    [block](const BlockHash& hash) { return hash.block < block; });
    };
    return {at(part.start), at(part.end)};
}

/// A file with holes can take as much space as its length, since what ext4 needs to find its pieces counts.
bool mayHaveHoles(int file) {
    struct stat status {};
    return ::fstat(file, &status) != 0 || hasHoles(status) || ::lseek(file, 0, SEEK_HOLE) < status.st_size;
}

/// Makes what is read or written by this descriptor go past the page cache, where its file system can do
/// that.
bool beginDirect(int file) {
    const int flags = ::fcntl(file, F_GETFL);
    return flags >= 0 && ::fcntl(file, F_SETFL, flags | O_DIRECT) == 0;
}

/// Whether that was so until now, and is no more.
bool endDirect(int file) {
    const int flags = ::fcntl(file, F_GETFL);
    return flags >= 0 && (flags & O_DIRECT) != 0 && ::fcntl(file, F_SETFL, flags & ~O_DIRECT) == 0;
}

} // namespace

void FileWriter::Free::operator()(char* bytes) const noexcept {
    std::free(bytes); // NOLINT: from aligned_alloc
}

FileWriter::FileWriter(ProgressMeter& meter, Renewals& renewals, PageCache pageCache, HugePages hugePages)
    : meter_(meter),
      renewals_(renewals),
      pageCache_(pageCache),
      hugePages_(hugePages) {
    static_assert(copyBufferSize >= 2 * BlockHash::blockSize);
    makeBuffer(copyBufferSize);
}

void FileWriter::makeBuffer(std::size_t size) {
    if (size > bufferSize_) {
        buffer_.reset(
            static_cast<char*>(std::aligned_alloc(size < hugePageSize ? pageSize : hugePageSize, size)));
        if (!buffer_) {
            throw std::bad_alloc();
        }
        if (size >= hugePageSize) {
            static_cast<void>(::madvise(buffer_.get(), size, MADV_HUGEPAGE));
        }
        bufferSize_ = size;
    }
}

void FileWriter::begin(const FileDescriptor& from, const FileDescriptor& to, Item source) {
    from_ = from.get();
    to_ = to.get();
    tree_ = &source.tree;
    item_ = source.number;
    readsDirectly_ = false;
    fillsHugePages_ = false;
}

void FileWriter::fail(const char* doing) const {
    throw SystemCallError(doing, tree_->path(item_));
}

bool FileWriter::copyWhole(const FileDescriptor& from, const FileDescriptor& to, Item source) {
    begin(from, to, source);
    struct stat status {};
    if (::fstat(from_, &status) != 0) {
        fail("read");
    }
    const auto size = static_cast<std::uint64_t>(status.st_size);
    const auto& file = originalOf(source);
    const auto [first, end] = blocksIn(source, {0, file.size});
    check_.begin(first, end, file.size);
    if (!mayHaveHoles(from_)) {
        copyRange(0, size);
    } else if (::ftruncate(to_, status.st_size) != 0) {
        fail("write");
    } else {
        copyData({0, size});
    }
    return check_.end(static_cast<std::uint64_t>(end - first)) && size == file.size;
}

bool FileWriter::copyPart(const FileDescriptor& from, const FileDescriptor& to, Item source, Part part) {
    begin(from, to, source);
    bypassPageCache();
    fillsHugePages_ = readsDirectly_ && hugePages_ == HugePages::onRequest;
    const auto [first, end] = blocksIn(source, part);
    check_.begin(first, end, originalOf(source).size);
    copyData(part);
    return check_.end(static_cast<std::uint64_t>(end - first));
}

void FileWriter::bypassPageCache() {
    if (pageCache_ == PageCache::bypass) {
        makeBuffer(directBufferSize);
        readsDirectly_ = beginDirect(from_);
        const bool writesDirectly = beginDirect(to_);
        if (!(readsDirectly_ && writesDirectly) && !std::exchange(isRefusalTold_, true)) {
            traceRefused("files", "O_DIRECT", "what is read or written goes through the page cache");
        }
    }
}

void FileWriter::copyData(Part part) {
    const auto partEnd = static_cast<off_t>(part.end);
    for (auto place = static_cast<off_t>(part.start); place < partEnd;) {
        const auto data = ::lseek(from_, place, SEEK_DATA);
        if (data < 0 && errno == ENXIO) {
            break;
        }
        const auto hole = data < 0 ? data : ::lseek(from_, data, SEEK_HOLE);
        const auto start = data < 0 ? place : data;
        const auto end = std::min(hole < 0 ? partEnd : hole, partEnd);
        if (start >= end) {
            break;
        }
        copyRange(static_cast<std::uint64_t>(start), static_cast<std::uint64_t>(end));
        place = end;
    }
}

void FileWriter::copyRange(std::uint64_t start, std::uint64_t end) {
    const std::uint64_t most = readsDirectly_ ? directBufferSize : copyBufferSize;
    auto asked = end - start > most && !readsDirectly_ ? start : end;
    while (start < end) {
        if (asked < end && asked - std::min(asked, start) <= readAhead / 2) {
            const auto more = std::min(readAhead, end - asked);
            static_cast<void>(::posix_fadvise(from_, static_cast<off_t>(asked), static_cast<off_t>(more),
                                              POSIX_FADV_WILLNEED));
            asked += more;
        }
        if (fillsHugePages_ && start % hugePageSize == 0 && end - start >= hugePageSize
            && readIntoHugePage(start)) {
            meter_.add(hugePageSize, 0);
            start += hugePageSize;
            continue;
        }
        const auto length = readAt(from_, buffer_.get(), std::min(most, end - start), start);
        if (length == 0) {
            break;
        }
        check_.see(buffer_.get(), length, start);
        writeAt(buffer_.get(), length, start);
        meter_.add(length, 0);
        start += length;
    }
}

/// Whether it was read whole; otherwise the usual way finds out what is wrong.
bool FileWriter::readIntoHugePage(std::uint64_t start) {
    const auto place = static_cast<off_t>(start);
    void* const page = ::mmap(nullptr, hugePageSize, PROT_READ | PROT_WRITE, MAP_SHARED, to_, place);
    if (page == MAP_FAILED) {
        return false;
    }
    // Only the kernel reaches for the page: on a full disk its call fails, where we should get a signal.
    const bool isRead = ::madvise(page, hugePageSize, MADV_HUGEPAGE) == 0
                        && ::pread(from_, page, hugePageSize, place) == static_cast<ssize_t>(hugePageSize);
    if (isRead) {
        check_.see(static_cast<const char*>(page), hugePageSize, start);
    }
    ::munmap(page, hugePageSize);
    return isRead;
}

bool FileWriter::update(const FileDescriptor& from, const FileDescriptor& to, Item source, Item target) {
    begin(from, to, source);
    const auto& file = originalOf(source);
    if (file.size != originalOf(target).size && ::ftruncate(to_, static_cast<off_t>(file.size)) != 0) {
        fail("write");
    }
    return updateBlocks(source, target, {0, file.size});
}

bool FileWriter::updatePart(const FileDescriptor& from, const FileDescriptor& to, Item source, Item target,
                            Part part) {
    begin(from, to, source);
    bypassPageCache();
    return updateBlocks(source, target, part);
}

bool FileWriter::updateBlocks(Item source, Item target, Part part) {
    auto [wanted, wantedEnd] = blocksIn(source, part);
    auto [present, presentEnd] = blocksIn(target, part);
    check_.begin(wanted, wantedEnd, originalOf(source).size);
    std::uint64_t changed = 0;
    // Where block after block is another one altogether, looking for what is left of the old ones is given
    // up.
    const bool isOneBlock = originalOf(source).size <= BlockHash::blockSize;
    int whole = isOneBlock && renewals_.expectInNextFile() && !mayHaveHoles(from_) ? manyBlocks : 0;
    Part run{part.start, part.start};
    const auto endRun = [&] {
        copyRange(run.start, run.end);
        run.start = run.end;
    };
    while (wanted != wantedEnd || present != presentEnd) {
        const bool isWanted =
            wanted != wantedEnd && (present == presentEnd || wanted->block <= present->block);
        const bool isPresent =
            present != presentEnd && (wanted == wantedEnd || present->block <= wanted->block);
        const auto start = (isWanted ? wanted->block : present->block) * BlockHash::blockSize;
        const bool isChanged = isWanted && !(isPresent && *wanted == *present);
        const auto end = std::min(part.end, start + BlockHash::blockSize);
        changed += isChanged ? 1 : 0;
        if (run.end != start || !isChanged) {
            endRun();
            whole = 0;
            run = {end, end};
        }
        if (isChanged && whole >= manyBlocks) {
            run.end = end;
        } else if (isChanged) {
            whole = updateBlock(start, end - start, isPresent) ? whole + 1 : 0;
            if (isOneBlock && isPresent) {
                renewals_.note(whole > 0);
            }
            meter_.add(end - start, 0);
            run = {end, end};
        } else if (!isWanted) {
            makeHole(start, BlockHash::blockSize);
        }
        wanted += isWanted ? 1 : 0;
        present += isPresent ? 1 : 0;
    }
    endRun();
    return check_.end(changed);
}

bool FileWriter::updateBlock(std::uint64_t start, std::size_t length, bool mayHoldData) {
    char* const now = buffer_.get();
    char* const before = now + BlockHash::blockSize;
    const auto got = readAt(from_, now, length, start);
    check_.see(now, got, start);
    const auto had = mayHoldData ? readAt(to_, before, got, start) : 0;
    std::memset(before + had, 0, got - had);
    bool isWhole = true;
    std::size_t runStart = 0;
    std::size_t runEnd = 0;
    for (std::size_t page = 0; page < got; page += pageSize) {
        const auto size = std::min(pageSize, got - page);
        if (std::memcmp(now + page, before + page, size) == 0) {
            isWhole = false;
            continue;
        }
        if (isAllZero(now + page, size)) {
            makeHole(start + page, pageSize);
            isWhole = false;
            continue;
        }
        if (runEnd != page) {
            writeAt(now + runStart, runEnd - runStart, start + runStart);
            runStart = page;
        }
        runEnd = page + size;
    }
    writeAt(now + runStart, runEnd - runStart, start + runStart);
    return isWhole;
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
        if (count < 0 && errno != EINTR && !(errno == EINVAL && endDirect(file))) {
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
        // The end of a file, which is no whole block, may have to take the usual way.
        if (count < 0 && errno != EINTR && !(errno == EINVAL && endDirect(to_))) {
            fail("write");
        }
        done += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
}

} // namespace ramdisk
