// What it costs to lead a folder of many files to a disk and back, against one of a few files: it should be
// the same. Writes to the folder given as argument, or to the system's temporary folder.

#include "RamDiskInfrastructure/Redirects/SymlinkFolderRedirector.h"
#include "benchmarks/BenchmarkTable.h"

#include <fmt/format.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>

namespace {

using namespace ramdisk;
namespace fs = std::filesystem;

constexpr int fewFiles = 10;
constexpr int manyFiles = 100'000;
constexpr int filesInAFolder = 1000;
constexpr int runs = 9;

void fill(const fs::path& folder, int files) {
    for (int number = 0; number < files; ++number) {
        const auto inside = folder / std::to_string(number / filesInAFolder);
        fs::create_directories(inside);
        std::ofstream(inside / std::to_string(number)) << number;
    }
}

SymlinkFolderRedirector::Source sourceOf(const std::string& folder) {
    return {UUID::random(), folder, folder};
}

/// Leads the folder to the disk and back.
void thereAndBack(const fs::path& home, const fs::path& disk, const std::string& folder) {
    const SymlinkFolderRedirector redirector(home, {}, {});
    const auto source = sourceOf(folder);
    const auto state = redirector.apply(source, disk, [](const RedirectRestoreState&) {});
    const auto& linked = std::get<RedirectRestoreState::LinkedFolder>(state.value);
    redirector.undo(source, {linked.backup, linked.link});
}

} // namespace

int main(int argc, char** argv) {
    const auto folder = (argc > 1 ? fs::path(argv[1]) : fs::temp_directory_path()) / "redirect-benchmark";
    const auto home = folder / "home";
    const auto disk = folder / "disk";
    int status = EXIT_SUCCESS;
    try {
        fs::create_directories(disk);
        fill(home / "few", fewFiles);
        fill(home / "many", manyFiles);
        benchmarks::printHeading("redirect and undo (peer: the same with 10 files)");
        const auto few = [&] { thereAndBack(home, disk, "few"); };
        benchmarks::compare(fmt::format("a folder of {} files", manyFiles),
                            {"redirect", [&] { thereAndBack(home, disk, "many"); }, {}},
                            {"redirect of 10 files", few, {}}, runs);
    } catch (const std::exception& error) {
        fmt::print(stderr, "{}\n", error.what());
        status = EXIT_FAILURE;
    }
    std::error_code ignored;
    fs::remove_all(folder, ignored);
    return status;
}
