// Work on a disk against the same work on a tmpfs that was mounted by hand.

#include "RamDiskInfrastructure/Commands/FileDescriptor.h"
#include "benchmarks/BenchmarkState.h"
#include "benchmarks/BenchmarkTable.h"

#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using namespace ramdisk::benchmarks;
using ramdisk::FileDescriptor;

constexpr int runs = 25;
constexpr std::size_t blockSize = 1024 * 1024;
constexpr int blocks = 512;
constexpr int fileCount = 20000;
constexpr int filesPerFolder = 1000;
constexpr std::size_t fileSize = 1024;

void require(bool hasWorked, const std::string& path) {
    if (!hasWorked) {
        throw std::system_error(errno, std::generic_category(), path);
    }
}

FileDescriptor opened(const std::string& path, int flags) {
    FileDescriptor file(open(path.c_str(), flags | O_CLOEXEC, 0600));
    require(static_cast<bool>(file), path);
    return file;
}

/// One large file below a folder.
class LargeFile {
public:
    explicit LargeFile(const std::filesystem::path& folder)
        : path_(folder / "large"),
          block_(blockSize, 'x') {}

    void write() {
        const auto file = opened(path_, O_WRONLY | O_CREAT | O_TRUNC);
        for (int block = 0; block < blocks; ++block) {
            require(::write(file.get(), block_.data(), blockSize) == static_cast<ssize_t>(blockSize), path_);
        }
    }
    void read() {
        const auto file = opened(path_, O_RDONLY);
        for (int block = 0; block < blocks; ++block) {
            require(::read(file.get(), block_.data(), blockSize) == static_cast<ssize_t>(blockSize), path_);
        }
    }
    void remove() const { require(unlink(path_.c_str()) == 0, path_); }

private:
    std::string path_;
    std::vector<char> block_;
};

/// Many small files below a folder.
class SmallFiles {
public:
    explicit SmallFiles(const std::filesystem::path& root) {
        for (int number = 0; number < fileCount; ++number) {
            const auto folder = root / fmt::format("folder{}", number / filesPerFolder);
            std::filesystem::create_directories(folder);
            paths_.push_back(folder / fmt::format("file{}", number));
        }
    }

    void create() const {
        for (const auto& path : paths_) {
            const auto file = opened(path, O_WRONLY | O_CREAT | O_EXCL);
            require(write(file.get(), contents_.data(), fileSize) == static_cast<ssize_t>(fileSize), path);
        }
    }
    void look() const {
        for (const auto& path : paths_) {
            struct stat status {};
            require(stat(path.c_str(), &status) == 0, path);
        }
    }
    void read() const {
        std::array<char, fileSize> buffer{};
        for (const auto& path : paths_) {
            const auto file = opened(path, O_RDONLY);
            require(::read(file.get(), buffer.data(), fileSize) == static_cast<ssize_t>(fileSize), path);
        }
    }
    void remove() const {
        for (const auto& path : paths_) {
            require(unlink(path.c_str()) == 0, path);
        }
    }

private:
    std::vector<std::string> paths_;
    std::array<char, fileSize> contents_{};
};

std::vector<Phase> phases(LargeFile& ours, LargeFile& peer) {
    return {{"write 512 MiB in blocks of 1 MiB", [&] { ours.write(); }, [&] { peer.write(); }},
            {"read it", [&] { ours.read(); }, [&] { peer.read(); }},
            {"delete it", [&] { ours.remove(); }, [&] { peer.remove(); }}};
}

std::vector<Phase> phases(const SmallFiles& ours, const SmallFiles& peer) {
    return {{"create 20000 files of 1 KiB", [&] { ours.create(); }, [&] { peer.create(); }},
            {"stat them", [&] { ours.look(); }, [&] { peer.look(); }},
            {"read them", [&] { ours.read(); }, [&] { peer.read(); }},
            {"delete them", [&] { ours.remove(); }, [&] { peer.remove(); }}};
}

void compareVolumes(const std::filesystem::path& ours, const std::filesystem::path& peer) {
    const std::string name = "tmpfs mounted by hand";
    LargeFile ourFile(ours);
    LargeFile peerFile(peer);
    compareInPhases(phases(ourFile, peerFile), name, runs);
    const SmallFiles ourFiles(ours);
    const SmallFiles peerFiles(peer);
    compareInPhases(phases(ourFiles, peerFiles), name, runs);
}

/// Mounted beside our disk, so that paths are equally long to walk.
std::filesystem::path mountByHand(const BenchmarkState& state, const std::string& name) {
    const auto path = state.mountPoint(name);
    std::filesystem::create_directories(path);
    runProgram({"mount", "-t", "tmpfs", "-o", "size=1G", name, path});
    return path;
}

void measureVolumes() {
    const BenchmarkState state;
    runTramdisk({"create", "--name", "Bench", "--size", "1G"});
    const auto plain = mountByHand(state, "Plain");
    printHeading("Work on a disk");
    compareVolumes(state.mountPoint("Bench"), plain);
    printHeading("Two tmpfs mounted by hand, for what chance contributes");
    compareVolumes(mountByHand(state, "Other"), plain);
}

} // namespace

int main() {
    try {
        measureVolumes();
    } catch (const std::exception& error) {
        fmt::print(stderr, "VolumeBenchmark: {}\n", error.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
