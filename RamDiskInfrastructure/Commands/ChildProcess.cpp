#include "RamDiskInfrastructure/Commands/ChildProcess.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskInfrastructure/Commands/ChildPlatform.h"

#include <array>
#include <csignal>
#include <string_view>
#include <system_error>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

extern "C" char** environ; // NOLINT: POSIX declares it in no header

namespace ramdisk {

namespace {

constexpr int signalExitBase = 128;
/// Reset in the child where this process ignores them. SIGHUP, SIGINT and SIGQUIT are left: who starts this
/// program with nohup or in the background means its tools as well.
constexpr std::array resetSignals{SIGPIPE, SIGTERM, SIGCHLD, SIGALRM, SIGUSR1, SIGUSR2};

bool startsWithVariable(std::string_view entry, std::string_view name) {
    return entry.size() > name.size() && entry.starts_with(name) && entry[name.size()] == '=';
}

/// This process's environment with the locale forced. LANGUAGE goes, since it would still translate texts.
std::vector<char*> childEnvironment() {
    static char forcedLocale[] = "LC_ALL=C.UTF-8";
    std::vector<char*> entries;
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
        if (!startsWithVariable(*entry, "LC_ALL") && !startsWithVariable(*entry, "LANGUAGE")) {
            entries.push_back(*entry);
        }
    }
    entries.push_back(forcedLocale);
    entries.push_back(nullptr);
    return entries;
}

/// The argument vector over the command's own bytes.
/// @throws std::system_error for a text that would reach the child cut off at a zero byte.
std::vector<char*> argumentVector(const SystemCommand& command) {
    std::vector<char*> vector;
    vector.reserve(command.arguments.size() + 2);
    const auto add = [&vector](const std::string& text) {
        if (text.find('\0') != std::string::npos) {
            throw std::system_error(EINVAL, std::generic_category(), "an argument holds a zero byte");
        }
        vector.push_back(const_cast<char*>(text.c_str()));
    };
    add(command.executable.native());
    for (const auto& argument : command.arguments) {
        add(argument);
    }
    vector.push_back(nullptr);
    return vector;
}

/// What `posix_spawn` is told about the child besides its arguments.
class SpawnSettings {
public:
    explicit SpawnSettings(const ChildStreams& streams) {
        if (error_ = posix_spawn_file_actions_init(&actions_); error_ != 0) {
            return;
        }
        if (error_ = posix_spawnattr_init(&attributes_); error_ != 0) {
            posix_spawn_file_actions_destroy(&actions_);
            return;
        }
        isInitialised_ = true;
        sigset_t none;
        sigset_t reset;
        sigemptyset(&none);
        sigemptyset(&reset);
        for (const int number : resetSignals) {
            sigaddset(&reset, number);
        }
        short flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
        note(posix_spawnattr_setsigmask(&attributes_, &none));
        note(posix_spawnattr_setsigdefault(&attributes_, &reset));
        note(streams.input
                 ? posix_spawn_file_actions_adddup2(&actions_, *streams.input, STDIN_FILENO)
                 : posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0));
        note(posix_spawn_file_actions_adddup2(&actions_, streams.output, STDOUT_FILENO));
        note(posix_spawn_file_actions_adddup2(&actions_, streams.error, STDERR_FILENO));
        note(closeOtherDescriptors(actions_, flags));
        note(posix_spawnattr_setflags(&attributes_, flags));
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;
    ~SpawnSettings() {
        if (isInitialised_) {
            posix_spawnattr_destroy(&attributes_);
            posix_spawn_file_actions_destroy(&actions_);
        }
    }

    /// 0 or the errno of the launch.
    [[nodiscard]] int spawn(const char* executable, char* const* arguments, char* const* environment,
                            pid_t& process) const {
        return error_ != 0
                   ? error_
                   : posix_spawn(&process, executable, &actions_, &attributes_, arguments, environment);
    }

private:
    void note(int error) { error_ = error_ == 0 ? error : error_; }

    posix_spawn_file_actions_t actions_{};
    posix_spawnattr_t attributes_{};
    bool isInitialised_ = false;
    int error_ = 0;
};

} // namespace

ChildProcess::ChildProcess(const SystemCommand& command, const ChildStreams& streams) {
    const auto arguments = argumentVector(command);
    const auto environment = childEnvironment();
    const int error = SpawnSettings(streams).spawn(command.executable.c_str(), arguments.data(),
                                                   environment.data(), process_);
    if (error != 0) {
        throw std::system_error(error, std::generic_category(),
                                "could not start “" + command.executable.string() + "”");
    }
    exitDescriptor_ = openExitDescriptor(process_);
}

ChildProcess::~ChildProcess() {
    if (isReaped()) {
        return;
    }
    signal(SIGKILL);
    try {
        reap();
    } catch (const std::system_error&) {
        // Its status is lost, but so is the child.
        traceCaught("commands", "a child was given up");
    }
}

bool ChildProcess::wait(int options) {
    int status = 0;
    pid_t waited = 0;
    do {
        waited = ::waitpid(process_, &status, options);
    } while (waited < 0 && errno == EINTR);
    if (waited < 0) {
        const int error = errno;
        status_ = 0; // Gone: the number must not be signalled or waited for again.
        throw std::system_error(error, std::generic_category(), "could not wait for a command");
    }
    if (waited == process_) {
        status_ = status;
    }
    return isReaped();
}

bool ChildProcess::tryReap() {
    return isReaped() || wait(WNOHANG);
}

void ChildProcess::reap() {
    if (!isReaped()) {
        wait(0);
    }
}

void ChildProcess::signal(int number) noexcept {
    if (!isReaped()) {
        ::kill(process_, number);
    }
}

CommandOutput ChildProcess::ending() const {
    CommandOutput output;
    if (const int status = status_.value(); WIFSIGNALED(status)) {
        output.signal = WTERMSIG(status);
        output.exitCode = signalExitBase + WTERMSIG(status);
    } else {
        output.exitCode = WEXITSTATUS(status);
    }
    return output;
}

} // namespace ramdisk
