// Saving a disk and restoring it, against what else would copy its files to the system disk and back.
// Arguments: the size of the tree of many files in MiB (1024, as 20,000 files), and how often (3).
// A single file of twice that size comes second. Writes to TMPDIR, which must lie on the system disk.

#include "benchmarks/BenchmarkDisk.h"
#include "benchmarks/BenchmarkState.h"
#include "benchmarks/BenchmarkTree.h"
#include "benchmarks/SaveContenders.h"
#include "benchmarks/SaveTable.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <exception>

namespace {

using namespace ramdisk::benchmarks;

constexpr const char* firstSave = "first save";
constexpr const char* secondSave = "second save, 1 % changed";
constexpr const char* unchangedSave = "repeat save, nothing changed";
constexpr const char* smallSave = "repeat save, 1 % changed";
constexpr const char* wholeSave = "repeat save, 100 % changed";
constexpr const char* restoring = "restore, nothing cached";

class SaveBenchmark {
public:
    SaveBenchmark(const BenchmarkState& state, BenchmarkTree::Extent extent)
        : disk_(state.folder()),
          tree_(state.mountPoint("Bench"), extent),
          contenders_(state, extent),
          table_(contenders_.present()) {}

    void run(int round) {
        round_ = round;
        contenders_.prepare();
        tree_.make();
        measure(firstSave, &SaveContenders::save, {Copier::tramdisk, Copier::rsync, Copier::cp, Copier::tar});
        // From the next one on there is a copy of before to start from.
        tree_.change(0.01);
        measure(secondSave, &SaveContenders::save, {Copier::tramdisk, Copier::rsync});
        const auto image = contenders_.image();
        measure(unchangedSave, &SaveContenders::save, {Copier::tramdisk, Copier::rsync});
        isImageTouched_ = isImageTouched_ || contenders_.image() != image;
        tree_.change(0.01);
        measure(smallSave, &SaveContenders::save, {Copier::tramdisk, Copier::rsync});
        tree_.change(1);
        measure(wholeSave, &SaveContenders::save, {Copier::tramdisk, Copier::rsync, Copier::cp, Copier::tar});
        contenders_.emptyDisk();
        measure(restoring, &SaveContenders::restore,
                {Copier::tramdisk, Copier::rsync, Copier::cp, Copier::tar});
        contenders_.remove();
    }

    void print(const std::string& subject) const {
        const auto changed = static_cast<double>(tree_.extent().bytes) / (1U << 20U) / 100;
        const auto small = table_.median(smallSave, Copier::tramdisk);
        table_.print(subject);
        table_.printTarget("repeat save, 1 %: at most 0.1 of the first save",
                           small / table_.median(firstSave, Copier::tramdisk), 0.1);
        if (contenders_.has(Copier::rsync)) {
            table_.printTarget("repeat save, 1 %: at most 1.5 times rsync",
                               small / table_.median(smallSave, Copier::rsync), 1.5);
        }
        table_.printTarget("repeat save, 1 %: writes at most 3 times what changed",
                           table_.leastWritten(smallSave, Copier::tramdisk) / changed, 3);
        table_.printTarget("nothing changed: the image is not touched (0: so it is)", isImageTouched_ ? 1 : 0,
                           0);
        table_.printTarget("first save: at most cp -a", table_.medianRatio(firstSave, Copier::cp), 1);
        table_.printTarget("restore: at most cp -a back", table_.medianRatio(restoring, Copier::cp), 1);
    }

private:
    void measure(const char* phase, void (SaveContenders::*work)(Copier),
                 const std::vector<Copier>& copiers) {
        for (std::size_t turn = 0; turn < copiers.size(); ++turn) {
            // Each goes first once.
            const auto copier = copiers[(turn + static_cast<std::size_t>(round_)) % copiers.size()];
            if (!contenders_.has(copier)) {
                continue;
            }
            if (work == &SaveContenders::restore) {
                contenders_.prepareRestore(copier);
                disk_.forgetCaches();
            }
            table_.add(phase, copier, disk_.costOf([&] { (contenders_.*work)(copier); }));
            if (work == &SaveContenders::restore) {
                contenders_.finishRestore(copier);
            }
        }
    }

    BenchmarkDisk disk_;
    BenchmarkTree tree_;
    SaveContenders contenders_;
    SaveTable table_;
    int round_ = 0;
    bool isImageTouched_ = false;
};

void measure(const std::string& subject, BenchmarkTree::Extent extent, int rounds) {
    const BenchmarkState state;
    SaveBenchmark benchmark(state, extent);
    for (int round = 0; round < rounds; ++round) {
        benchmark.run(round);
    }
    benchmark.print(subject);
}

} // namespace

int main(int argc, char** argv) {
    const auto argument = [&](int number, int otherwise) {
        return argc > number ? std::max(1, std::atoi(argv[number])) : otherwise;
    };
    const auto mebibytes = argument(1, 1024);
    const auto rounds = argument(2, 3);
    const auto bytes = static_cast<std::uint64_t>(mebibytes) << 20U;
    const auto files = std::max(100, mebibytes * 20'000 / 1024);
    try {
        measure(fmt::format("{} MiB in {} files", mebibytes, files), {files, bytes}, rounds);
        measure(fmt::format("One file of {} MiB", 2 * mebibytes), {1, 2 * bytes}, rounds);
    } catch (const std::exception& error) {
        fmt::print(stderr, "SaveBenchmark: {}\n", error.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
