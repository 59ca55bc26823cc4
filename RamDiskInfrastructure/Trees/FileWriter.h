#pragma once

#include "RamDiskInfrastructure/Trees/BlockCheck.h"
#include "RamDiskInfrastructure/Trees/ParallelJobs.h"
#include "RamDiskInfrastructure/Trees/TreeContents.h"
#include "RamDiskInfrastructure/Trees/TreeUpdate.h"

#include <atomic>
#include <cstddef>
#include <memory>

namespace ramdisk {

/// Tells whether changed files of one block were lately written as a whole, as programs do with small files,
/// or changed in place. All threads of an update share it.
class Renewals {
public:
    /// Whether to expect that the next file has nothing of its old contents. Ask once for each file: the
    /// calls are counted, and one in 16 returns false, so that the assumption is checked.
    [[nodiscard]] bool expectInNextFile() noexcept {
        return inARow_.load(std::memory_order_relaxed) >= enough
               && expected_.fetch_add(1, std::memory_order_relaxed) % betweenLooks != 0;
    }
    void note(bool wasRenewed) noexcept {
        inARow_.store(wasRenewed ? inARow_.load(std::memory_order_relaxed) + 1 : 0,
                      std::memory_order_relaxed);
    }

private:
    static constexpr int enough = 8;
    static constexpr unsigned betweenLooks = 16;

    std::atomic<int> inARow_{0};
    std::atomic<unsigned> expected_{1};
};

/// Copies the contents of files from one descriptor to another. Each thread has its own. The functions return
/// whether what was read is what the source's manifest lists; it was copied in any case.
class FileWriter {
public:
    /// `meter` and `renewals` must outlive the writer.
    FileWriter(ProgressMeter& meter, Renewals& renewals, PageCache pageCache, HugePages hugePages);

    /// A file of a tree.
    struct Item {
        const TreeManifest::Contents& tree;
        std::uint32_t number;
    };
    /// A part of a file, made of whole blocks except at the file's end.
    struct Part {
        std::uint64_t start;
        std::uint64_t end;
    };

    /// Fills an empty file; holes stay holes.
    /// @throws SystemCallError with the item's path
    [[nodiscard]] bool copyWhole(const FileDescriptor& from, const FileDescriptor& to, Item source);

    /// The same for a part of a large file, which has its size already.
    /// @throws SystemCallError with the item's path
    [[nodiscard]] bool copyPart(const FileDescriptor& from, const FileDescriptor& to, Item source, Part part);

    /// Makes the contents those of the source. In blocks with different hashes only the pages that differ are
    /// written, or the whole block where it is expected to differ anyway.
    /// @throws SystemCallError with the item's path
    [[nodiscard]] bool update(const FileDescriptor& from, const FileDescriptor& to, Item source, Item target);

    /// The same for a part of a large file, which has its size already.
    /// @throws SystemCallError with the item's path
    [[nodiscard]] bool updatePart(const FileDescriptor& from, const FileDescriptor& to, Item source,
                                  Item target, Part part);

private:
    struct Free {
        void operator()(char* bytes) const noexcept;
    };

    void begin(const FileDescriptor& from, const FileDescriptor& to, Item source);
    /// From here on goes past the page cache, if that is wanted and as far as the file systems can.
    void bypassPageCache();
    void copyData(Part part);
    void makeBuffer(std::size_t size);
    void copyRange(std::uint64_t start, std::uint64_t end);
    [[nodiscard]] bool readIntoHugePage(std::uint64_t start);
    [[nodiscard]] bool updateBlocks(Item source, Item target, Part part);
    /// Returns whether all of the block differed.
    bool updateBlock(std::uint64_t start, std::size_t length, bool mayHoldData);
    void makeHole(std::uint64_t start, std::uint64_t length);
    [[nodiscard]] std::size_t readAt(int file, char* bytes, std::size_t length, std::uint64_t start);
    void writeAt(const char* bytes, std::size_t length, std::uint64_t start);
    [[noreturn]] void fail(const char* doing) const;

    ProgressMeter& meter_;
    Renewals& renewals_;
    PageCache pageCache_;
    HugePages hugePages_;
    /// Aligned as the kernel requires it for access past the page cache.
    std::unique_ptr<char, Free> buffer_;
    std::size_t bufferSize_ = 0;
    BlockCheck check_;
    /// Once for all files, as they are mostly alike.
    bool isRefusalTold_ = false;
    bool readsDirectly_ = false;
    bool fillsHugePages_ = false;
    int from_ = -1;
    int to_ = -1;
    const TreeManifest::Contents* tree_ = nullptr;
    std::uint32_t item_ = 0;
};

} // namespace ramdisk
