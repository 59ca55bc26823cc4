#include "RamDiskInfrastructure/Trees/BlockCheck.h"

#include "RamDiskInfrastructure/Trees/ContentHash.h"
#include "RamDiskInfrastructure/Trees/ZeroBytes.h"

#include <algorithm>
#include <cstring>

namespace ramdisk {

void BlockCheck::begin(const BlockHash* first, const BlockHash* end, std::uint64_t size) {
    next_ = first;
    end_ = end;
    size_ = size;
    found_ = 0;
    isAsListed_ = true;
    hasPieces_ = false;
}

void BlockCheck::see(const char* bytes, std::size_t length, std::uint64_t start) {
    while (length > 0) {
        const auto block = start / BlockHash::blockSize;
        const auto offset = start % BlockHash::blockSize;
        const auto count = std::min<std::size_t>(length, BlockHash::blockSize - offset);
        if (offset == 0 && (count == BlockHash::blockSize || start + count == size_)) {
            endPieces();
            compare(block, bytes, count);
        } else {
            if (!hasPieces_ || piecesBlock_ != block) {
                endPieces();
                pieces_ = pieces_ ? std::move(pieces_) : std::make_unique<char[]>(BlockHash::blockSize);
                std::memset(pieces_.get(), 0, BlockHash::blockSize);
                piecesBlock_ = block;
                hasPieces_ = true;
            }
            std::memcpy(pieces_.get() + offset, bytes, count);
        }
        bytes += count;
        start += count;
        length -= count;
    }
}

void BlockCheck::endPieces() {
    if (hasPieces_) {
        hasPieces_ = false;
        const auto start = piecesBlock_ * BlockHash::blockSize;
        // A file that has grown since has more than was listed.
        isAsListed_ = isAsListed_ && start < size_;
        compare(piecesBlock_, pieces_.get(), std::min(BlockHash::blockSize, size_ - std::min(size_, start)));
    }
}

void BlockCheck::compare(std::uint64_t block, const char* bytes, std::size_t length) {
    next_ = std::lower_bound(next_, end_, block,
                             [](const BlockHash& hash, std::uint64_t wanted) { return hash.block < wanted; });
    if (next_ != end_ && next_->block == block) {
        const auto hash = contentHash(bytes, length);
        isAsListed_ = isAsListed_ && hash == ContentHash{next_->low, next_->high};
        ++found_;
        ++next_;
    } else if (length > 0 && !isAllZero(bytes, length)) {
        isAsListed_ = false;
    }
}

bool BlockCheck::end(std::uint64_t listed) {
    endPieces();
    return isAsListed_ && found_ == listed;
}

} // namespace ramdisk
