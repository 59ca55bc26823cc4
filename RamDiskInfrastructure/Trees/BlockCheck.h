#pragma once

#include "RamDiskInfrastructure/Trees/TreeContents.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace ramdisk {

/// Compares what is copied of a file, while it is copied, with the hashes that a manifest lists. Each thread
/// has its own.
class BlockCheck {
public:
    /// Begins with the blocks from `first` to `end`, some of those of a file of `size` bytes.
    void begin(const BlockHash* first, const BlockHash* end, std::uint64_t size);
    /// The next bytes of the file that were copied. What was skipped counts as zero.
    void see(const char* bytes, std::size_t length, std::uint64_t start);
    /// Whether all that was seen is as it is listed. `listed` is how many listed blocks should have been
    /// seen.
    [[nodiscard]] bool end(std::uint64_t listed);

private:
    void compare(std::uint64_t block, const char* bytes, std::size_t length);
    void endPieces();

    const BlockHash* next_ = nullptr;
    const BlockHash* end_ = nullptr;
    std::uint64_t size_ = 0;
    std::uint64_t found_ = 0;
    bool isAsListed_ = true;
    /// A block of which only pieces were copied, as there are holes in it.
    std::unique_ptr<char[]> pieces_;
    std::uint64_t piecesBlock_ = 0;
    bool hasPieces_ = false;
};

} // namespace ramdisk
