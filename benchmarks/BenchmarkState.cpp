#include "benchmarks/BenchmarkState.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <cerrno>
#include <cstdlib>
#include <stdexcept>
#include <system_error>

#include <fcntl.h>
#include <sched.h>
#include <spawn.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

namespace ramdisk::benchmarks {

namespace {

void require(bool hasWorked, const char* what) {
    if (!hasWorked) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

FileDescriptor currentNamespace() {
    return FileDescriptor(open("/proc/self/ns/mnt", O_RDONLY | O_CLOEXEC));
}

/// Each place starts from the namespace that the process was born in, not from another place.
const FileDescriptor& originalNamespace() {
    static const auto original = currentNamespace();
    return original;
}

} // namespace

BenchmarkState::BenchmarkState() {
    require(setns(originalNamespace().get(), CLONE_NEWNS) == 0, "enter the first mount namespace");
    require(unshare(CLONE_NEWNS) == 0, "make a mount namespace");
    require(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "keep mounts private");
    namespace_ = currentNamespace();
    std::string pattern = std::filesystem::temp_directory_path() / "tramdisk-benchmark-XXXXXX";
    require(mkdtemp(pattern.data()) != nullptr, "make a temporary folder");
    folder_ = pattern;
    enter();
}

BenchmarkState::~BenchmarkState() {
    // Outside of this place nothing is mounted on the folder, so that only empty folders and records go.
    if (setns(originalNamespace().get(), CLONE_NEWNS) == 0) {
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }
}

void BenchmarkState::enter() const {
    require(setns(namespace_.get(), CLONE_NEWNS) == 0, "enter a mount namespace");
    require(setenv("TRAMDISK_STATE", folder_.c_str(), 1) == 0, "set the environment");
}

void runProgram(const std::vector<std::string>& commandLine) {
    std::vector<char*> arguments;
    for (const auto& argument : commandLine) {
        arguments.push_back(const_cast<char*>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t child = -1;
    const int error = posix_spawnp(&child, arguments.front(), &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    if (error != 0 || waitpid(child, &status, 0) != child || status != 0) {
        throw std::runtime_error(fmt::format("`{}` failed", fmt::join(commandLine, " ")));
    }
}

void runTramdisk(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), TRAMDISK_EXECUTABLE);
    runProgram(arguments);
}

} // namespace ramdisk::benchmarks
