#pragma once

#include "RamDiskInfrastructure/Trees/ParallelJobs.h"
#include "RamDiskInfrastructure/Trees/TreeContents.h"

#include <cstddef>
#include <memory>
#include <vector>

#include <sys/stat.h>

namespace ramdisk {

/// Whether to note which files nobody has open for writing.
enum class Writers { ignore, note };

/// What was read of a file, or of a piece of one.
struct FileReading {
    /// Where the blocks begin among those of the reader.
    std::size_t firstBlock = 0;
    std::size_t blockCount = 0;
    bool hadNoWriter = false;
    /// Only for the piece at the start of the file.
    ItemAttributes attributes{};
};

/// Reads files of a tree and keeps the hashes of their blocks. Each thread has a reader of its own. When all
/// threads are done, the hashes are added to the tree.
class FileReader {
public:
    /// The size up to which one call reads a whole file.
    static constexpr std::uint64_t smallFile = 4 * BlockHash::blockSize;

    /// `tree` names the items; it and `meter` must outlive the reader.
    FileReader(const TreeManifest::Contents& tree, Writers writers, ProgressMeter& meter);

    /// Reads the bytes from `start` to `end`, or up to the end of the file. From the start of the file it
    /// also reads the attributes. `status` is that of the open file.
    /// @throws SystemCallError with the item
    [[nodiscard]] FileReading read(int file, const struct stat& status, std::uint32_t item,
                                   std::uint64_t start, std::uint64_t end);

    /// Adds what this reader read to the tree. The pieces of an item must be added in order.
    void note(FileReading&& reading, TreeManifest::Contents& tree, std::uint32_t item) const;

private:
    [[nodiscard]] std::size_t fillBuffer(int file, std::uint32_t item, std::uint64_t place,
                                         std::uint64_t end);
    void hashBlocks(std::uint64_t place, std::size_t length);

    const TreeManifest::Contents& tree_;
    Writers writers_;
    ProgressMeter& meter_;
    std::unique_ptr<char[]> buffer_;
    std::vector<BlockHash> blocks_;
};

} // namespace ramdisk
