#pragma once

#include "RamDiskInfrastructure/Linux/Trees/ParallelJobs.h"
#include "RamDiskInfrastructure/Linux/Trees/TreeContents.h"

#include <string>
#include <vector>

namespace ramdisk {

/// Copies the contents of files from one descriptor to another. Each thread has its own.
class FileWriter {
public:
    explicit FileWriter(ProgressMeter& meter);

    /// Fills an empty file; holes stay holes.
    /// @throws SystemCallError with the item's path
    void copyWhole(const FileDescriptor& from, const FileDescriptor& to, const TreeManifest::Contents& tree,
                   std::uint32_t item);

    /// Makes the contents those of the source, writing only the pages that differ in blocks whose hashes do.
    /// @throws SystemCallError with the item's path
    void update(const FileDescriptor& from, const FileDescriptor& to, const TreeManifest::Contents& source,
                std::uint32_t sourceItem, const TreeManifest::Contents& target, std::uint32_t targetItem);

private:
    void copyRange(std::uint64_t start, std::uint64_t end);
    [[nodiscard]] bool copyInKernel(std::uint64_t& start, std::uint64_t end);
    void updateBlock(std::uint64_t start, std::size_t length, bool mayHoldData);
    void makeHole(std::uint64_t start, std::uint64_t length);
    [[nodiscard]] std::size_t readAt(int file, char* bytes, std::size_t length, std::uint64_t start);
    void writeAt(const char* bytes, std::size_t length, std::uint64_t start);
    [[noreturn]] void fail(const char* doing) const;

    ProgressMeter& meter_;
    std::vector<char> buffer_;
    bool kernelCopies_ = true;
    int from_ = -1;
    int to_ = -1;
    const TreeManifest::Contents* tree_ = nullptr;
    std::uint32_t item_ = 0;
};

} // namespace ramdisk
