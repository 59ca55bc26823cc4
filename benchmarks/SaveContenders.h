#pragma once

#include "benchmarks/BenchmarkState.h"
#include "benchmarks/BenchmarkTree.h"

#include <filesystem>
#include <set>

namespace ramdisk::benchmarks {

/// What copies the files of the disk “Bench”. All but the first copy into the folder of the benchmark.
enum class Copier { tramdisk, rsync, cp, tar };

[[nodiscard]] const char* nameOf(Copier copier);

/// The ways of saving a disk's files and of restoring them, each on its own copy.
class SaveContenders {
public:
    /// What tells of an image that it was left alone.
    struct Image {
        std::filesystem::path path;
        std::filesystem::file_time_type modified;
        auto operator<=>(const Image&) const = default;
    };

    /// Keeps its settings and saved files in the benchmark's folder, never in the user's.
    SaveContenders(const BenchmarkState& state, BenchmarkTree::Extent extent);

    /// Those whose programs are installed.
    [[nodiscard]] const std::set<Copier>& present() const noexcept { return present_; }
    [[nodiscard]] bool has(Copier copier) const { return present_.contains(copier); }

    /// Makes the disk, empty and with nothing saved.
    void prepare();
    void save(Copier copier);
    [[nodiscard]] Image image() const;
    /// Gives up the disk's files, so that only the copies are left.
    void emptyDisk();
    /// Makes an empty disk, “Peer”, for all but our own way, which makes “Bench” itself.
    void prepareRestore(Copier copier);
    void restore(Copier copier);
    void finishRestore(Copier copier);
    /// Removes disk and copies.
    void remove();

private:
    [[nodiscard]] std::string copyOf(Copier copier) const;

    std::filesystem::path folder_;
    std::string disk_;
    std::string peerDisk_;
    std::string size_;
    std::set<Copier> present_;
};

} // namespace ramdisk::benchmarks
