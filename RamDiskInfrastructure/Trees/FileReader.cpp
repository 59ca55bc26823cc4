#include "RamDiskInfrastructure/Trees/FileReader.h"

#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/Trees/ContentHash.h"
#include "RamDiskInfrastructure/Trees/ItemMetadata.h"
#include "RamDiskInfrastructure/Trees/WriteWatch.h"
#include "RamDiskInfrastructure/Trees/ZeroBytes.h"

#include <algorithm>
#include <utility>

#include <unistd.h>

namespace ramdisk {

namespace {

/// The start of the block in which the next data lies.
std::uint64_t nextData(int file, std::uint64_t place, std::uint64_t end) {
    const auto data = ::lseek(file, static_cast<off_t>(place), SEEK_DATA);
    if (data < 0) {
        // Without an answer everything counts as data.
        return errno == ENXIO ? end : place;
    }
    const auto block = static_cast<std::uint64_t>(data) / BlockHash::blockSize;
    return std::max(place, block * BlockHash::blockSize);
}

} // namespace

FileReader::FileReader(const TreeManifest::Contents& tree, Writers writers, ProgressMeter& meter)
    : tree_(tree),
      writers_(writers),
      meter_(meter),
      // Not set to zero: of a small tree next to nothing of it is used.
      buffer_(new char[smallFile]) {}

FileReading FileReader::read(int file, const struct stat& status, std::uint32_t item, std::uint64_t start,
                             std::uint64_t end) {
    FileReading reading;
    // Before anything is read: who opens it for writing from now on shows.
    reading.hadNoWriter = writers_ == Writers::note && WriteWatch::hasNoWriter(file);
    if (start == 0) {
        reading.attributes = readFileAttributes(file, tree_, item);
    }
    reading.firstBlock = blocks_.size();
    const bool isSparse = hasHoles(status);
    for (auto place = start; place < end;) {
        place = isSparse ? nextData(file, place, end) : place;
        const auto length = place < end ? fillBuffer(file, item, place, end) : 0;
        if (length == 0) {
            break;
        }
        hashBlocks(place, length);
        meter_.add(length, 0);
        place += length;
    }
    meter_.add(0, start == 0 ? 1 : 0);
    reading.blockCount = blocks_.size() - reading.firstBlock;
    return reading;
}

void FileReader::note(FileReading&& reading, TreeManifest::Contents& tree, std::uint32_t item) const {
    auto& file = tree.items[item];
    const auto first = blocks_.begin() + static_cast<std::ptrdiff_t>(reading.firstBlock);
    if (!file.areContentsNoted) {
        file.areContentsNoted = true;
        file.hadNoWriter = true;
        file.firstBlock = tree.blocks.size();
        tree.setAttributes(item, std::move(reading.attributes));
    }
    file.hadNoWriter = file.hadNoWriter && reading.hadNoWriter;
    tree.blocks.insert(tree.blocks.end(), first, first + static_cast<std::ptrdiff_t>(reading.blockCount));
    file.blockCount += reading.blockCount;
}

std::size_t FileReader::fillBuffer(int file, std::uint32_t item, std::uint64_t place, std::uint64_t end) {
    const auto wanted = std::min(smallFile, end - place);
    std::size_t got = 0;
    while (got < wanted) {
        const auto count = ::pread(file, buffer_.get() + got, wanted - got, static_cast<off_t>(place + got));
        if (count < 0 && errno != EINTR) {
            throw SystemCallError("read", tree_.path(item));
        }
        if (count == 0) {
            break;
        }
        got += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    return got;
}

void FileReader::hashBlocks(std::uint64_t place, std::size_t length) {
    for (std::size_t start = 0; start < length; start += BlockHash::blockSize) {
        const char* bytes = buffer_.get() + start;
        const auto size = std::min<std::size_t>(BlockHash::blockSize, length - start);
        if (!isAllZero(bytes, size)) {
            const auto hash = contentHash(bytes, size);
            blocks_.push_back({(place + start) / BlockHash::blockSize, hash.low, hash.high});
        }
    }
}

} // namespace ramdisk
