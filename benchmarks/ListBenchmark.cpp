// Listing 1, 16 and 64 disks with the whole program, against the system's own listing of the same mounts.

#include "benchmarks/BenchmarkState.h"
#include "benchmarks/BenchmarkTable.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <cstdlib>
#include <exception>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace ramdisk::benchmarks;

constexpr int runs = 151;

void makeDisks(int count) {
    for (int number = 1; number <= count; ++number) {
        runTramdisk({"create", "--name", fmt::format("Disk {}", number), "--size", "16M"});
    }
}

Contender listing(const BenchmarkState& state, const std::string& name) {
    return {name,
            [&state] {
                state.enter();
                runTramdisk({"list"});
            },
            {}};
}

Contender mountListing(const BenchmarkState& state, std::vector<std::string> commandLine) {
    return {fmt::format("{}", fmt::join(commandLine, " ")),
            [&state, commandLine = std::move(commandLine)] {
                state.enter();
                runProgram(commandLine);
            },
            {}};
}

void compareWithMountListings(const BenchmarkState& state, int disks) {
    state.enter();
    makeDisks(disks);
    const auto title = fmt::format("tramdisk list, disks: {}", disks);
    compare(title, listing(state, ""), mountListing(state, {"findmnt"}), runs);
    // This one asks each file system how full it is, as our list does.
    compare(title, listing(state, ""),
            mountListing(state, {"findmnt", "-o", "TARGET,SOURCE,SIZE,USED,AVAIL"}), runs);
}

void measureLists() {
    const BenchmarkState one;
    const BenchmarkState sixteen;
    const BenchmarkState sixtyFour;
    printHeading("Listing");
    compareWithMountListings(one, 1);
    compareWithMountListings(sixteen, 16);
    compareWithMountListings(sixtyFour, 64);
    compare("tramdisk list, disks: 64", listing(sixtyFour, ""), listing(one, "tramdisk list, disks: 1"),
            runs);
}

} // namespace

int main() {
    try {
        measureLists();
    } catch (const std::exception& error) {
        fmt::print(stderr, "ListBenchmark: {}\n", error.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
