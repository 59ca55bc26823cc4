// What running a command costs over the bare system calls, and how fast a child's output is collected.

#include "RamDiskInfrastructure/Commands/ChildPlatform.h"
#include "RamDiskInfrastructure/Commands/ProcessCommandRunner.h"
#include "benchmarks/BenchmarkTable.h"

#include <fmt/format.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern "C" char** environ; // NOLINT: POSIX declares it in no header

namespace {

using namespace ramdisk;
using benchmarks::compare;
using benchmarks::Contender;

constexpr int spawnsPerRun = 50;
constexpr std::size_t pipeSize = 64 * 1024;
constexpr std::size_t bytesMoved = 1024UL * 1024 * 1024;
enum class Keeping { discard, keep };

pid_t spawn(const SystemCommand& command, const posix_spawn_file_actions_t* actions) {
    std::vector<char*> arguments{const_cast<char*>(command.executable.c_str())};
    for (const auto& argument : command.arguments) {
        arguments.push_back(const_cast<char*>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    pid_t child = -1;
    if (posix_spawn(&child, command.executable.c_str(), actions, nullptr, arguments.data(), environ) != 0) {
        throw std::runtime_error("could not start " + command.description());
    }
    return child;
}

void waitFor(pid_t child) {
    int status = 0;
    if (waitpid(child, &status, 0) != child || status != 0) {
        throw std::runtime_error("a child failed");
    }
}

/// What a hand-written reader does: a blocking read of a plain pipe into one buffer.
std::size_t readPlainly(const SystemCommand& command, Keeping keeping) {
    auto pipe = makePipe();
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pipe.writingEnd.get(), STDOUT_FILENO);
    const auto child = spawn(command, &actions);
    posix_spawn_file_actions_destroy(&actions);
    pipe.writingEnd.reset();
    std::string kept;
    std::size_t received = 0;
    std::vector<char> buffer(pipeSize);
    for (ssize_t count = 0; (count = read(pipe.readingEnd.get(), buffer.data(), buffer.size())) > 0;) {
        received += static_cast<std::size_t>(count);
        if (keeping == Keeping::keep) {
            kept.append(buffer.data(), static_cast<std::size_t>(count));
        }
    }
    waitFor(child);
    return received;
}

void expectAll(std::size_t received) {
    if (received != bytesMoved) {
        throw std::runtime_error(fmt::format("{} bytes came", received));
    }
}

void repeat(const std::function<void()>& work) {
    for (int run = 0; run < spawnsPerRun; ++run) {
        work();
    }
}

void measureSpawns() {
    const SystemCommand command{"/bin/true", {}, std::nullopt, std::nullopt};
    const auto fed = SystemCommand{"/bin/true", {}, "secret", 30.0};
    const auto ours = [&command] { repeat([&] { (void)ProcessCommandRunner().run(command); }); };
    const auto oursFed = [&fed] { repeat([&] { (void)ProcessCommandRunner().run(fed); }); };
    const Contender bare{
        "posix_spawn + waitpid", [&] { repeat([&] { waitFor(spawn(command, nullptr)); }); }, {}};
    const Contender piped{"posix_spawn, one pipe read to its end",
                          [&] { repeat([&] { (void)readPlainly(command, Keeping::keep); }); },
                          {}};
    benchmarks::printHeading(fmt::format("Starting /bin/true {} times", spawnsPerRun));
    compare("run", {"", ours, {}}, bare, 31);
    compare("run", {"", ours, {}}, piped, 31);
    compare("run with input and a time limit", {"", oursFed, {}}, bare, 31);
}

void measureOutput(const SystemCommand& command) {
    const auto ours = [&command] { expectAll(ProcessCommandRunner().run(command).standardOutput.size()); };
    benchmarks::printHeading("Collecting 1 GiB of " + command.description());
    compare("run", {"", ours, {}},
            {"reader that keeps", [&] { expectAll(readPlainly(command, Keeping::keep)); }, {}}, 5);
    compare("run", {"", ours, {}},
            {"reader that discards", [&] { expectAll(readPlainly(command, Keeping::discard)); }, {}}, 5);
}

} // namespace

int main() {
    try {
        measureSpawns();
        measureOutput({"/usr/bin/head", {"-c", "1073741824", "/dev/zero"}, std::nullopt, std::nullopt});
        measureOutput({"/bin/dd",
                       {"if=/dev/zero", "bs=1048576", "count=1024", "status=none"},
                       std::nullopt,
                       std::nullopt});
    } catch (const std::exception& error) {
        fmt::print(stderr, "RunnerBenchmark: {}\n", error.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
