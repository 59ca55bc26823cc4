#pragma once

#include "RamDiskCore/Startup/SessionLifecycleUseCase.h"
#include "tramdisk/GlobalOptions.h"

#include <chrono>
#include <functional>
#include <string>

namespace ramdisk::cli {

/// One line on the terminal that tells how far a copy is, once it takes longer than a second. Draws nothing
/// where nobody would see it, and leaves nothing behind. Used from one thread at a time.
class ProgressLine {
public:
    /// `verb` is what is being done: "Saving".
    ProgressLine(const GlobalOptions& options, std::string verb);
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;
    ~ProgressLine();

    void show(const std::string& diskName, const TransferProgress& progress);

    /// An observer of one disk's copying; this line outlives it.
    [[nodiscard]] ProgressObserver observer(const std::string& diskName);
    /// The same of several disks.
    [[nodiscard]] SessionLifecycleUseCase::Observer observer();

private:
    using Clock = std::chrono::steady_clock;

    std::string verb_;
    bool isShown_;
    bool isDrawn_ = false;
    Clock::time_point next_;
};

} // namespace ramdisk::cli
