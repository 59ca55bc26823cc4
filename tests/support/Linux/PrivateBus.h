#pragma once

#include "RamDiskInfrastructure/Commands/ChildProcess.h"
#include "tests/support/Testing.h"

#include <stdlib.h> // NOLINT: setenv

namespace ramdisk::test {

/// Environment variables that get their old values back when this object is destroyed.
class Environment {
public:
    Environment() = default;
    Environment(const Environment&) = delete;
    Environment& operator=(const Environment&) = delete;
    ~Environment() {
        for (const auto& [name, value] : former_) {
            value ? setenv(name.c_str(), value->c_str(), 1) : unsetenv(name.c_str());
        }
    }

    /// Absent to remove it.
    void set(const std::string& name, const std::optional<std::string>& value) {
        const char* const former = getenv(name.c_str());
        former_.emplace(name, former == nullptr ? std::nullopt : std::optional<std::string>(former));
        value ? setenv(name.c_str(), value->c_str(), 1) : unsetenv(name.c_str());
    }

private:
    std::map<std::string, std::optional<std::string>> former_;
};

/// A program that is ended with this object, or with the test, whatever ends the test.
class Helper {
public:
    explicit Helper(std::vector<std::string> command, std::string_view input = {})
        : input_(memfd_create("input", MFD_CLOEXEC)),
          output_(open("/dev/null", O_WRONLY | O_CLOEXEC)) {
        if (pwrite(input_.get(), input.data(), input.size(), 0) != static_cast<ssize_t>(input.size())) {
            throw std::runtime_error("no input for " + command.front());
        }
        SystemCommand whole;
        whole.executable = "/usr/bin/setpriv";
        whole.arguments = {"--pdeathsig", "KILL"};
        whole.arguments.insert(whole.arguments.end(), command.begin(), command.end());
        child_ =
            std::make_unique<ChildProcess>(whole, ChildStreams{input_.get(), output_.get(), output_.get()});
    }
    ~Helper() { end(); }

    void signal(int number) { child_->signal(number); }
    void end() {
        if (child_ && !child_->isReaped()) {
            child_->signal(SIGKILL);
            child_->reap();
        }
    }

private:
    FileDescriptor input_;
    FileDescriptor output_;
    std::unique_ptr<ChildProcess> child_;
};

/// A message bus of the test's own, on which nothing is started by its name. While this object exists, it is
/// the process's session bus and system bus, and the user's folders are scratch folders.
class PrivateBus {
public:
    PrivateBus();

    [[nodiscard]] const ScratchFolder& folder() const { return folder_; }
    [[nodiscard]] Helper& daemon() { return *daemon_; }

    /// Blocks until a program has the name. @throws std::runtime_error when none takes it.
    void waitForName(const std::string& name) const;

    /// Whether the program is installed.
    [[nodiscard]] static bool has(const std::string& program);

private:
    ScratchFolder folder_;
    Environment environment_;
    std::unique_ptr<Helper> daemon_;
};

} // namespace ramdisk::test
