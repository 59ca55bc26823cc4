#pragma once

#include "RamDiskInfrastructure/Commands/ChildProcess.h"
#include "tests/support/ScratchFolder.h"

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ramdisk::test {

/// Environment variables that get their old values back when this object is destroyed.
class Environment {
public:
    Environment() = default;
    Environment(const Environment&) = delete;
    Environment& operator=(const Environment&) = delete;
    ~Environment();

    /// Absent to remove it.
    void set(const std::string& name, const std::optional<std::string>& value);

private:
    std::map<std::string, std::optional<std::string>> former_;
};

/// A program that is ended with this object, or with the test, whatever ends the test.
class Helper {
public:
    explicit Helper(std::vector<std::string> command, std::string_view input = {});
    ~Helper();

    void signal(int number) { child_->signal(number); }
    void end();

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
