#pragma once

#include "RamDiskCore/Ports/SystemCommand.h"
#include "RamDiskInfrastructure/Commands/FileDescriptor.h"

#include <optional>

#include <sys/types.h>

namespace ramdisk {

/// The descriptors that become a child's standard streams. They stay the caller's.
struct ChildStreams {
    /// Absent: the child sees the end of its input at once.
    std::optional<int> input;
    int output;
    int error;
};

/// A started child, until it has been waited for. It inherits its three streams and no other descriptor. It
/// gets the environment with the locale set to C.UTF-8, so that a program can read its texts. No signal is
/// blocked. The only ignored signals are those by which a process survives the end of its terminal or a
/// terminal's key.
///
/// Only this child is ever waited for. If its handle is destroyed because something threw, the child is
/// killed. If the process that runs it crashes, the child lives on, and its streams break.
class ChildProcess {
public:
    /// @throws std::system_error with the executable's name and the errno of the launch. Then nothing runs.
    ChildProcess(const SystemCommand& command, const ChildStreams& streams);
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ~ChildProcess();

    /// Becomes readable when the child ends; may be none.
    [[nodiscard]] const FileDescriptor& exitDescriptor() const noexcept { return exitDescriptor_; }

    /// Whether the child has ended and been waited for.
    [[nodiscard]] bool isReaped() const noexcept { return status_.has_value(); }

    /// Waits for the child if it has ended already. @throws std::system_error as `reap`.
    bool tryReap();

    /// Blocks until the child has ended. @throws std::system_error when its status is lost, because this
    /// process ignores SIGCHLD.
    void reap();

    /// Sends a signal. Does nothing once the child has been waited for, when its number may belong to another
    /// process.
    void signal(int number) noexcept;

    /// The exit status and the signal of a child that has been waited for. The streams are empty.
    [[nodiscard]] CommandOutput ending() const;

private:
    bool wait(int options);

    pid_t process_ = -1;
    FileDescriptor exitDescriptor_;
    std::optional<int> status_;
};

} // namespace ramdisk
