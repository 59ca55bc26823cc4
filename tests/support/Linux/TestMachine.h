#pragma once

#include "RamDiskInfrastructure/Linux/Host/LinuxHost.h"
#include "tests/support/Testing.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <sys/mount.h>
#include <sys/xattr.h>

namespace ramdisk::test {

/// An ordinary user that exists everywhere.
inline constexpr uid_t nobody = 65534;

/// How a child process ended.
struct Outcome {
    /// The exit status, or 128 and the number of the signal that ended it.
    int status = 0;
    std::string out{};
    std::string err{};

    [[nodiscard]] nlohmann::json json() const { return nlohmann::json::parse(out); }
};

/// A machine of its own for one test: a folder with a home folder, records and mount folders. For root the
/// mounts and /dev/shm are its own as well, so they vanish with the test process, however it ends.
class TestMachine {
public:
    /// `user` owns everything, and `run` starts programs as `user`.
    explicit TestMachine(uid_t user = 0);
    TestMachine(const TestMachine&) = delete;
    TestMachine& operator=(const TestMachine&) = delete;
    ~TestMachine();

    [[nodiscard]] const std::filesystem::path& folder() const noexcept { return folder_; }
    [[nodiscard]] std::filesystem::path records() const { return folder_ / "state/disks"; }
    [[nodiscard]] std::filesystem::path media() const { return folder_ / "state/media"; }
    [[nodiscard]] std::filesystem::path privateMounts() const { return folder_ / "home/data/RamDisks"; }

    /// Extra variables for the programs that `run` starts.
    std::map<std::string, std::string> environment;

    /// Runs tramdisk to its end.
    Outcome run(std::vector<std::string> arguments) const;
    /// The same with the program's standard output going to `output`.
    Outcome run(std::vector<std::string> arguments, int output) const;
    /// Starts tramdisk without waiting. Its output is thrown away.
    [[nodiscard]] pid_t start(std::vector<std::string> arguments) const;
    /// Turns the calling process into such a tramdisk.
    [[noreturn]] void become(std::vector<std::string> arguments) const;
    /// What `tramdisk list --json` shows, by name.
    [[nodiscard]] std::map<std::string, nlohmann::json> list() const;
    /// Makes a small disk and returns its description.
    nlohmann::json create(const std::string& name, const std::vector<std::string>& more = {}) const;

    /// The same machine for adapters inside this process.
    [[nodiscard]] LinuxHost host(HostRung rung) const;

    /// What disks have left: mounts, folders on /dev/shm, records, mount folders, and the loop devices and
    /// memory files of disks whose records existed when `remember` was called.
    [[nodiscard]] std::vector<std::string> traces() const;
    /// Notes which disks this machine made. `run` and `traces` do it too. Call it for disks that come and go
    /// in between.
    void remember() const;

private:
    mutable std::mutex mutex_;
    mutable std::set<std::string> tags_;
    std::filesystem::path folder_;
    uid_t user_;
};

/// Runs `body` in a child process as `user`. Returns its exit status, or 128 and the signal that ended it.
int inChild(uid_t user, const std::function<int()>& body);
/// Waits for a child: its exit status, or 128 and the signal that ended it.
int waitFor(pid_t child);

/// How many bytes this process has read from files so far.
std::uint64_t bytesReadSoFar();

/// The mount points whose line in the mount table holds `text`.
[[nodiscard]] std::vector<std::string> mountsWith(std::string_view text);

} // namespace ramdisk::test

/// For tests that mount or act as another user, which needs root.
#define SKIP_UNLESS_ROOT()                                                                                   \
    if (geteuid() != 0) {                                                                                    \
        GTEST_SKIP() << "needs root, to mount and to act as another user";                                   \
    }                                                                                                        \
    static_assert(true)
