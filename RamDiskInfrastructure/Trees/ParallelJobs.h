#pragma once

#include "RamDiskCore/Ports/TransferProgress.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>

namespace ramdisk {

/// Does jobs on several threads, the calling one among them, and waits for all of them.
class ParallelJobs {
public:
    /// What a job is: microseconds of a processor, tens of them, or mostly waiting for a device.
    enum class Load { brief, lengthy, waiting };

    /// As many workers as are worth their start for `jobs` jobs that move `bytes` bytes.
    ParallelJobs(std::size_t jobs, std::uint64_t bytes, Load load = Load::brief);

    [[nodiscard]] unsigned workerCount() const noexcept { return workers_; }

    /// Makes the function that does one worker's jobs, given the number of the worker.
    using MakeWorker = std::function<std::function<void(std::size_t job)>(unsigned worker)>;
    /// Does all jobs, each once, in about the order of their numbers. After a failure no more jobs are
    /// started, and the first failure is thrown.
    void run(const MakeWorker& makeWorker) const;

private:
    std::size_t jobs_;
    unsigned workers_;
};

/// Larger files are worth being shared by several threads, in parts.
inline constexpr std::uint64_t largestWholeFile = 32ULL << 20U;
/// How large the parts of a file of `size` bytes are: whole blocks, and of a sparse giant, most of whose
/// parts are holes, about a thousand.
[[nodiscard]] constexpr std::uint64_t partSizeOf(std::uint64_t size) {
    return largestWholeFile * (1 + size / largestWholeFile / 1024);
}

/// Counts what several threads have done and tells the observer now and then.
class ProgressMeter {
public:
    /// `observer` must outlive the meter.
    explicit ProgressMeter(const ProgressObserver& observer) : observer_(observer) {}

    void expect(std::uint64_t bytes, std::uint64_t files);
    void add(std::uint64_t bytes, std::uint64_t files);
    /// Tells the observer how things stand at the end.
    void finish();

private:
    void tell();

    const ProgressObserver& observer_;
    std::atomic<std::uint64_t> bytes_{0};
    std::atomic<std::uint64_t> files_{0};
    std::uint64_t totalBytes_ = 0;
    std::uint64_t totalFiles_ = 0;
    std::mutex telling_;
    std::chrono::steady_clock::time_point lastTold_;
};

} // namespace ramdisk
