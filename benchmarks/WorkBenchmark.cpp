// What disks are for: installing packages, building, walking a tree, on a RAM disk against a folder on the
// system disk. Argument: how often (5). Writes to TMPDIR, which must lie on the system disk. The network is
// not used.

#include "benchmarks/BenchmarkDisk.h"
#include "benchmarks/BenchmarkState.h"
#include "benchmarks/BenchmarkTable.h"
#include "benchmarks/BenchmarkTree.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

namespace {

using namespace ramdisk::benchmarks;
namespace fs = std::filesystem;

int runs = 5;
constexpr int packages = 20;
constexpr int filesInAPackage = 250;
constexpr int sources = 30;
constexpr int treeFiles = 20'000;

/// The same work in two places.
struct Places {
    fs::path ours;
    fs::path peer;
};

void runShell(const std::string& script) {
    runProgram({"sh", "-ec", script});
}

void writeFile(const fs::path& file, const std::string& text) {
    fs::create_directories(file.parent_path());
    std::ofstream(file) << text;
}

bool isInstalled(const char* program) {
    try {
        runProgram({program, "--version"});
        return true;
    } catch (const std::runtime_error&) {
        return false;
    }
}

/// Packages as npm would fetch them, and a project that needs all of them, with its lock file.
void makePackages(const fs::path& folder) {
    std::string dependencies;
    for (int package = 0; package < packages; ++package) {
        const auto name = fmt::format("package-{}", package);
        const auto root = folder / "sources" / name / "package";
        writeFile(root / "package.json", fmt::format(R"({{"name":"{}","version":"1.0.0"}})", name));
        for (int file = 0; file < filesInAPackage; ++file) {
            writeFile(root / "lib" / std::to_string(file / 25) / fmt::format("{}.js", file),
                      fmt::format("// {} {}\n{}", name, file, std::string(2000, 'x')));
        }
        runProgram({"tar", "-czf", folder / (name + ".tgz"), "-C", root.parent_path(), "package"});
        dependencies += fmt::format(R"({}"{}":"file:../{}.tgz")", package == 0 ? "" : ",", name, name);
    }
    writeFile(folder / "project/package.json",
              fmt::format(R"({{"name":"project","version":"1.0.0","dependencies":{{{}}}}})", dependencies));
}

/// Runs npm in the project of a place; everything that it keeps beside lies in the same place.
std::string npm(const fs::path& place, const std::string& arguments) {
    return fmt::format(
        "cd '{0}/project'; HOME='{0}' npm_config_cache='{0}/cache' npm_config_update_notifier=false "
        "npm {1} --offline "
        "--no-audit --no-fund --loglevel=error",
        place.string(), arguments);
}

void measurePackages(const Places& places) {
    if (!isInstalled("npm")) {
        fmt::print("npm is not installed: `npm ci` is left out.\n");
        return;
    }
    for (const auto& place : {places.ours, places.peer}) {
        makePackages(place);
        runShell(npm(place, "install"));
    }
    const auto contender = [](const fs::path& place, const char* name) {
        return Contender{name, [=] { runShell(npm(place, "ci")); }, {}};
    };
    compare(fmt::format("npm ci: {} packages, {} files", packages, packages * filesInAPackage),
            contender(places.ours, ""), contender(places.peer, "system disk"), runs);
}

void makeSources(const fs::path& folder) {
    std::string rules = "CXX = g++ -O0\nall: program\n";
    std::string objects;
    for (int unit = 0; unit < sources; ++unit) {
        writeFile(
            folder / "build" / fmt::format("unit{}.cpp", unit),
            fmt::format("#include <string>\n#include <vector>\n"
                        "std::size_t unit{0}(const std::vector<std::string>& all) {{\n"
                        "    std::size_t sum = {0};\n    for (const auto& one : all) sum += one.size();\n"
                        "    return sum;\n}}\n{1}",
                        unit, unit == 0 ? "int main() {}\n" : ""));
        objects += fmt::format(" unit{}.o", unit);
    }
    rules += fmt::format("program:{0}\n\t$(CXX) -o $@{0}\n%.o: %.cpp\n\t$(CXX) -c -o $@ $<\n", objects);
    writeFile(folder / "build/Makefile", rules);
}

void measureBuild(const Places& places) {
    if (!isInstalled("g++") || !isInstalled("make")) {
        fmt::print("g++ or make is not installed: the build is left out.\n");
        return;
    }
    const auto contender = [](const fs::path& place, const char* name) {
        const auto folder = (place / "build").string();
        // The compiler's own temporary files belong to the work.
        return Contender{name,
                         [=] { runShell(fmt::format("TMPDIR='{0}' make -s -j$(nproc) -C '{0}'", folder)); },
                         [=] { runShell(fmt::format("rm -f '{0}'/*.o '{0}/program'", folder)); }};
    };
    for (const auto& place : {places.ours, places.peer}) {
        makeSources(place);
    }
    compare(fmt::format("make: {} translation units of C++", sources), contender(places.ours, ""),
            contender(places.peer, "system disk"), runs);
}

void measureWalk(const Places& places, const BenchmarkDisk& disk) {
    for (const auto& place : {places.ours, places.peer}) {
        BenchmarkTree(place / "tree", {treeFiles, treeFiles * 4096ULL}).make();
    }
    const auto contender = [](const fs::path& place, const char* name) {
        return Contender{
            name,
            [=] { runShell(fmt::format("du -s '{0}'; find '{0}' -size +1M", (place / "tree").string())); },
            {}};
    };
    const auto cold = [&](Contender one) {
        one.cleanUp = [&disk] { disk.forgetCaches(); };
        return one;
    };
    const auto ours = contender(places.ours, "");
    compare(fmt::format("du and find: {} files, cached", treeFiles), ours,
            contender(places.peer, "system disk"), runs);
    compare(fmt::format("du and find: {} files, first time", treeFiles), cold(ours),
            cold(contender(places.peer, "system disk, nothing cached")), runs);
    const auto remove = [](const fs::path& place, const char* name) {
        const auto tree = (place / "tree").string();
        const auto copy = (place / "copy").string();
        return Contender{
            name, [=] { runShell(fmt::format("cp -a '{0}' '{1}'; rm -r '{1}'", tree, copy)); }, {}};
    };
    compare(fmt::format("cp -a and rm -r: {} files", treeFiles), remove(places.ours, ""),
            remove(places.peer, "system disk"), runs);
}

} // namespace

int main(int argc, char** argv) {
    runs = argc > 1 ? std::max(1, std::atoi(argv[1])) : runs;
    try {
        const BenchmarkState state;
        const BenchmarkDisk disk(state.folder());
        const Places places{state.mountPoint("Bench"), state.folder() / "peer"};
        fs::create_directories(places.peer);
        runTramdisk({"create", "--name", "Bench", "--size", "1G"});
        printHeading("Work on a RAM disk, against a folder on the system disk");
        measurePackages(places);
        measureBuild(places);
        measureWalk(places, disk);
    } catch (const std::exception& error) {
        fmt::print(stderr, "WorkBenchmark: {}\n", error.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
