#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

namespace ramdisk::benchmarks {

/// A tree of files of one size, a hundred a folder, whose contents do not compress and never repeat.
class BenchmarkTree {
public:
    struct Extent {
        int files = 0;
        std::uint64_t bytes = 0;
    };

    /// Nothing is written before `make`.
    BenchmarkTree(std::filesystem::path folder, Extent extent);

    void make();
    /// Writes a share of the tree anew: that part of the files, or of a single file one region in its middle.
    void change(double share);

    [[nodiscard]] Extent extent() const noexcept { return extent_; }

private:
    [[nodiscard]] std::filesystem::path file(int number) const;
    void write(const std::filesystem::path& file, std::uint64_t start, std::uint64_t length);

    std::filesystem::path folder_;
    Extent extent_;
    std::uint64_t random_ = 0x9E3779B97F4A7C15U;
    std::string buffer_;
};

} // namespace ramdisk::benchmarks
