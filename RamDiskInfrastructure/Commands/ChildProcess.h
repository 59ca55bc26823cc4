#pragma once

#include "RamDiskCore/Ports/SystemCommand.h"
#include "RamDiskInfrastructure/Commands/FileDescriptor.h"

#include <optional>

#include <sys/types.h>

namespace ramdisk {

/// The descriptors that become a child's standard streams. They stay the caller's.
struct ChildStreams {
    /// Without one the child sees the end of its input at once.
    std::optional<int> input;
    int output;
    int error;
};

/// A started child, from its start until it has been waited for. It inherits its three streams and no other
/// descriptor, the environment with the locale forced to C.UTF-8 (so that its texts can be read by a
/// program), no blocked signal, and no ignored one but those by which a terminal's end or key is survived.
///
/// Only this child is ever waited for. A child whose handle goes away, because something threw, is killed; a
/// child whose runner crashes lives on and sees its streams break.
class ChildProcess {
public:
    /// @throws std::system_error naming the executable, with the errno of the launch; nothing runs then.
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

    /// Sends a signal; nothing once the child has been reaped, when its number may be somebody else's.
    void signal(int number) noexcept;

    /// The exit status and the signal of a reaped child, with no streams.
    [[nodiscard]] CommandOutput ending() const;

private:
    bool wait(int options);

    pid_t process_ = -1;
    FileDescriptor exitDescriptor_;
    std::optional<int> status_;
};

} // namespace ramdisk
