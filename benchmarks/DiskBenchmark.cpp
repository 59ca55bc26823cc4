// Making and ejecting a disk with the whole program, against the commands that a user would type instead.

#include "benchmarks/BenchmarkState.h"
#include "benchmarks/BenchmarkTable.h"

#include <fmt/format.h>

#include <cstdlib>
#include <exception>
#include <string>

namespace {

using namespace ramdisk::benchmarks;

constexpr int runs = 151;

void runShell(const std::string& script) {
    runProgram({"sh", "-c", script});
}

void measureDisks() {
    const BenchmarkState state;
    const auto plain = (state.folder() / "plain").string();
    const auto mount = [plain] {
        runShell(fmt::format("mkdir -p {0} && mount -t tmpfs -o size=512M t {0}", plain));
    };
    const auto unmount = [plain] { runShell(fmt::format("umount {0} && rmdir {0}", plain)); };
    const auto create = [] { runTramdisk({"create", "--name", "Bench", "--size", "512M"}); };
    const auto eject = [] { runTramdisk({"eject", "Bench"}); };

    printHeading("A disk of 512 MB");
    compare("tramdisk create", {"", create, eject}, {"sh: mkdir, mount -t tmpfs", mount, unmount}, runs);
    create();
    mount();
    compare("tramdisk eject", {"", eject, create}, {"sh: umount, rmdir", unmount, mount}, runs);
    compare("tramdisk --version", {"", [] { runTramdisk({"--version"}); }, {}},
            {"sh: nothing", [] { runShell(":"); }, {}}, runs);
}

} // namespace

int main() {
    try {
        measureDisks();
    } catch (const std::exception& error) {
        fmt::print(stderr, "DiskBenchmark: {}\n", error.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
