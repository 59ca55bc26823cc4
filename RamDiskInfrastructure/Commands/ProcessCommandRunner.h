#pragma once

#include "RamDiskCore/Ports/CommandRunning.h"

namespace ramdisk {

/// Runs commands as child processes. Has no state: each run has its own child, pipes and time limit, and no
/// other thread, lock or signal handler takes part in it.
///
/// A child that reaches its time limit gets SIGTERM, and SIGKILL two seconds later if it still runs. A child
/// that ended before is never signalled, and its output is returned. Its own descendants may write on after
/// it. Their output is collected only while the time limit runs (two seconds without a limit). So a
/// descendant that keeps the streams open cannot hold up the caller.
class ProcessCommandRunner final : public CommandRunning {
public:
    [[nodiscard]] CommandOutput run(const SystemCommand& command) override;
};

} // namespace ramdisk
