// What a change of a stored list costs, alone and among many, against the bare system calls of a durable
// write, and how fast a long list is read. Writes to the folder given as argument, or to the system's
// temporary folder.

#include "RamDiskInfrastructure/Stores/FileProfileRepository.h"
#include "RamDiskInfrastructure/Stores/StoredFile.h"
#include "benchmarks/BenchmarkTable.h"

#include <fmt/format.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace ramdisk;
using List = std::vector<RamDiskProfile>;

constexpr int updatesTogether = 400;
constexpr std::size_t usualLength = 20;
constexpr std::size_t longLength = 10'000;
constexpr int runs = 5;

List profiles(std::size_t count) {
    List list;
    for (std::size_t number = 0; number < count; ++number) {
        list.push_back({.id = UUID::random(),
                        .name = fmt::format("Disk {}", number),
                        .size = ByteCount::of(1, ByteCount::Unit::gibibyte),
                        .seedFolder = "/home/somebody/Seeds",
                        .folders = {"Temp", "Cache/Chrome"}});
    }
    return list;
}

void renameFirst(FileProfileRepository& repository) {
    repository.update([](List list) {
        list.front().name += list.front().name.size() > 20 ? std::string() : "x";
        return list;
    });
}

/// `count` times `work`, shared out among processes.
template <typename Work>
void amongProcesses(int processes, int count, Work work) {
    for (int process = 0; process < processes; ++process) {
        const auto child = fork();
        if (child == 0) {
            for (int number = 0; number < count / processes; ++number) {
                work();
            }
            _exit(EXIT_SUCCESS);
        }
        if (child < 0) {
            throw std::runtime_error("could not start a process");
        }
    }
    int status = 0;
    while (wait(&status) > 0) {
        if (status != 0) {
            throw std::runtime_error("a process failed");
        }
    }
}

/// What every durable replacement costs at least: write, flush, rename, flush.
void replaceBarely(const std::filesystem::path& target, const std::string& text) {
    const auto temporary = target.string() + fmt::format(".{}", getpid());
    const FileDescriptor file(open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    const FileDescriptor folder(open(target.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (write(file.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size())
        || fsync(file.get()) != 0 || rename(temporary.c_str(), target.c_str()) != 0
        || fsync(folder.get()) != 0) {
        throw std::runtime_error("could not write");
    }
}

void measureUpdates(const std::filesystem::path& folder) {
    FileProfileRepository repository(folder);
    repository.update([](const List&) { return profiles(usualLength); });
    const auto text = encodeList(repository.load());
    for (const int processes : {1, 8}) {
        const auto started = std::chrono::steady_clock::now();
        amongProcesses(processes, updatesTogether, [&] { renameFirst(repository); });
        const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - started;
        fmt::print("{} processes: {:.0f} updates a second of a list of {} records\n", processes,
                   updatesTogether / elapsed.count(), usualLength);
        benchmarks::printHeading(fmt::format("{} updates by {} processes", updatesTogether, processes));
        benchmarks::compare(
            "update",
            {"", [&] { amongProcesses(processes, updatesTogether, [&] { renameFirst(repository); }); }, {}},
            {"write, fsync, rename, fsync without a lock",
             [&] {
                 amongProcesses(processes, updatesTogether,
                                [&] { replaceBarely(folder / "bare.json", text); });
             },
             {}},
            runs);
    }
}

void measureLoad(const std::filesystem::path& folder) {
    FileProfileRepository repository(folder);
    repository.update([](const List&) { return profiles(longLength); });
    benchmarks::printHeading(fmt::format("Reading {} records", longLength));
    benchmarks::compare("load",
                        {"",
                         [&] {
                             if (repository.load().size() != longLength) {
                                 throw std::runtime_error("records are missing");
                             }
                         },
                         {}},
                        {"the file's bytes alone",
                         [&] {
                             if (!readStoredFile(folder / "Startup Disks.json")) {
                                 throw std::runtime_error("the file is missing");
                             }
                         },
                         {}},
                        runs);
}

} // namespace

int main(int argumentCount, char** arguments) {
    const auto parent =
        argumentCount > 1 ? std::filesystem::path(arguments[1]) : std::filesystem::temp_directory_path();
    const auto folder = parent / fmt::format("store-benchmark-{}", getpid());
    int status = EXIT_SUCCESS;
    try {
        measureUpdates(folder);
        measureLoad(folder);
    } catch (const std::exception& error) {
        fmt::print(stderr, "StoreBenchmark: {}\n", error.what());
        status = EXIT_FAILURE;
    }
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
    return status;
}
