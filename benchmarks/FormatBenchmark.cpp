// The formats on a loop device: making them against the same bare commands, work on them against the file
// system that those commands make, and the memory that they hold.

#include "RamDiskInfrastructure/Linux/Host/SmallFile.h"
#include "benchmarks/BenchmarkState.h"
#include "benchmarks/BenchmarkTable.h"

#include <fmt/format.h>

#include <cstdlib>
#include <exception>
#include <filesystem>
#include <string>
#include <vector>

namespace {

using namespace ramdisk::benchmarks;

constexpr int creations = 41;
constexpr int trees = 9;

struct Format {
    std::string title;
    std::vector<std::string> arguments;
};

const std::vector<Format>& formats() {
    static const std::vector<Format> all{{"hfs+ (tmpfs)", {"--format", "hfs+"}},
                                         {"jhfs+", {"--format", "jhfs+"}},
                                         {"apfs", {"--format", "apfs"}},
                                         {"apfs, encrypted", {"--format", "apfs", "--encrypt"}},
                                         {"apfsx", {"--format", "apfsx"}}};
    return all;
}

void runShell(const std::string& script) {
    runProgram({"sh", "-ec", script});
}

void makeDisk(const Format& format, const std::string& size) {
    std::vector<std::string> arguments{"create", "--name", "Bench", "--size", size};
    arguments.insert(arguments.end(), format.arguments.begin(), format.arguments.end());
    runTramdisk(arguments);
}

void ejectDisk() {
    runTramdisk({"eject", "Bench"});
}

/// The commands that a user would type: a sparse file in memory, a loop device, ext4, a mount.
class BareDisk {
public:
    explicit BareDisk(const BenchmarkState& state)
        : mountPoint_(state.mountPoint("bare")),
          image_(fmt::format("/dev/shm/{}.img", state.folder().filename().string())) {}

    void make(const std::string& size) const {
        runShell(fmt::format("truncate -s {0} {1}; L=$(losetup -f --show {1}); "
                             "mkfs.ext4 -q -m 0 -J size=4 -E assume_storage_prezeroed=1 $L; "
                             "mkdir -p {2}; mount $L {2}",
                             size, image_, mountPoint_.string()));
    }
    void remove() const {
        runShell(fmt::format("L=$(findmnt -no SOURCE {0}); umount {0}; losetup -d $L; rmdir {0}; rm {1}",
                             mountPoint_.string(), image_));
    }
    [[nodiscard]] const std::filesystem::path& mountPoint() const { return mountPoint_; }

private:
    std::filesystem::path mountPoint_;
    std::string image_;
};

void measureCreations(const BareDisk& bare) {
    printHeading("Making a disk of 1 GB");
    for (const auto& format : formats()) {
        compare(fmt::format("tramdisk create {}", format.title),
                {"", [&] { makeDisk(format, "1G"); }, ejectDisk},
                {"sh: truncate, losetup, mkfs.ext4, mount", [&] { bare.make("1G"); }, [&] { bare.remove(); }},
                creations);
    }
}

/// 20,000 files of 1 KiB in an archive beside the disks.
std::filesystem::path makeArchive(const BenchmarkState& state) {
    const auto archive = state.folder() / "tree.tar";
    runShell(fmt::format("mkdir {0}/tree; cd {0}/tree; i=0; while [ $i -lt 20 ]; do mkdir $i; "
                         "head -c 1024000 /dev/urandom | split -a 3 -b 1024 - $i/f; i=$((i+1)); done; "
                         "tar -cf {1} .; cd ..; rm -r tree",
                         state.folder().string(), archive.string()));
    return archive;
}

void measureTrees(const BenchmarkState& state, const BareDisk& bare) {
    const auto archive = makeArchive(state).string();
    const auto ours = state.mountPoint("Bench").string();
    const auto peer = bare.mountPoint().string();
    const auto unpack = [&](const std::string& folder) {
        return [=] { runProgram({"tar", "-xf", archive, "-C", folder}); };
    };
    const auto remove = [](const std::string& folder) {
        return [=] { runShell(fmt::format("rm -r {}/[0-9]*", folder)); };
    };
    const auto write = [](const std::string& folder) {
        return [=] {
            runProgram({"dd", "if=/dev/zero", fmt::format("of={}/large", folder), "bs=1M", "count=384",
                        "conv=fsync", "status=none"});
        };
    };
    const auto erase = [](const std::string& folder) {
        return [=] { runShell(fmt::format("rm {}/large", folder)); };
    };
    for (const auto& format : formats()) {
        printHeading(fmt::format("Work on {} of 1 GB, against a bare ext4 on a loop device", format.title));
        makeDisk(format, "1G");
        bare.make("1G");
        compareInPhases({{"unpack 20000 files of 1 KiB", unpack(ours), unpack(peer)},
                         {"delete them", remove(ours), remove(peer)},
                         {"write 384 MiB and fsync", write(ours), write(peer)},
                         {"delete it", erase(ours), erase(peer)}},
                        "bare ext4", trees);
        bare.remove();
        ejectDisk();
    }
}

/// What all files in memory hold, in MiB.
double sharedMemory() {
    const auto text = ramdisk::readSmallFile("/proc/meminfo");
    const auto line = text.find("Shmem:");
    return static_cast<double>(std::strtoull(text.c_str() + line + 6, nullptr, 10)) / 1024;
}

void measureMemory(const BenchmarkState& state) {
    fmt::print("\nMemory held by a disk of 512 MB [MiB]\n{:<44} {:>10} {:>10} {:>10} {:>10}\n", "", "empty",
               "filled", "emptied", "trimmed");
    const auto folder = state.mountPoint("Bench").string();
    for (const auto& format : formats()) {
        const auto before = sharedMemory();
        const auto held = [&] { return sharedMemory() - before; };
        makeDisk(format, "512M");
        const auto empty = held();
        runShell(fmt::format("head -c 450M /dev/urandom > {0}/f; sync -f {0}", folder));
        const auto filled = held();
        runShell(fmt::format("rm {0}/f; sync -f {0}", folder));
        const auto emptied = held();
        // A tmpfs has nothing to trim, and says so.
        runShell(fmt::format("fstrim {0} 2>/dev/null || true", folder));
        fmt::print("{:<44} {:>10.1f} {:>10.1f} {:>10.1f} {:>10.1f}\n", format.title, empty, filled, emptied,
                   held());
        ejectDisk();
    }
}

} // namespace

int main() {
    try {
        const BenchmarkState state;
        const BareDisk bare(state);
        measureCreations(bare);
        measureTrees(state, bare);
        measureMemory(state);
    } catch (const std::exception& error) {
        fmt::print(stderr, "FormatBenchmark: {}\n", error.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
