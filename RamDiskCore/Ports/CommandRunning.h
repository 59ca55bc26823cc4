#pragma once

#include "RamDiskCore/Ports/Port.h"
#include "RamDiskCore/Ports/SystemCommand.h"

namespace ramdisk {

/// Runs the system's command-line tools.
class CommandRunning : public Port {
public:
    /// Runs the command to its end and gives back what it wrote and how it ended. A tool that reports failure
    /// has still run: callers who want that as an error use `runChecked`. Blocks; safe from any thread.
    /// @throws CommandTimeout when the time limit passed, whether or not the child had finished its work;
    ///         std::system_error when the child could not be started, with nothing left running.
    [[nodiscard]] virtual CommandOutput run(const SystemCommand& command) = 0;

    /// As `run`, with a tool's failure thrown.
    /// @throws CommandFailure when the child exits with another status than zero or dies of a signal.
    CommandOutput runChecked(const SystemCommand& command);
};

} // namespace ramdisk
