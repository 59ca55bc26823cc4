#pragma once

#include "RamDiskCore/Ports/TransferProgress.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>

namespace ramdisk {

/// Does jobs on several threads, including the calling one, and waits for all of them.
class ParallelJobs {
public:
    /// What a job costs: microseconds of a processor, tens of microseconds, or mostly waiting for a device.
    enum class Load { brief, lengthy, waiting };

    /// Chooses as many workers as pay off for `jobs` jobs that move `bytes` bytes.
    ParallelJobs(std::size_t jobs, std::uint64_t bytes, Load load = Load::brief);

    [[nodiscard]] unsigned workerCount() const noexcept { return workers_; }

    /// Makes the function that does the jobs of one worker. Its argument is the number of the worker.
    using MakeWorker = std::function<std::function<void(std::size_t job)>(unsigned worker)>;
    /// Does each job once, roughly in the order of their numbers. After a failure no more jobs are started,
    /// and the first failure is thrown.
    void run(const MakeWorker& makeWorker) const;

private:
    std::size_t jobs_;
    unsigned workers_;
};

/// Larger files are divided into parts for several threads.
inline constexpr std::uint64_t largestWholeFile = 32ULL << 20U;
/// How large the parts of a file of `size` bytes are. Parts are whole blocks. A huge sparse file, most of
/// whose parts are holes, gets about a thousand.
[[nodiscard]] constexpr std::uint64_t partSizeOf(std::uint64_t size) {
    return largestWholeFile * (1 + size / largestWholeFile / 1024);
}

/// Counts what several threads have done, and calls the observer now and then.
class ProgressMeter {
public:
    /// `observer` must outlive the meter.
    explicit ProgressMeter(const ProgressObserver& observer) : observer_(observer) {}

    void expect(std::uint64_t bytes, std::uint64_t files);
    void add(std::uint64_t bytes, std::uint64_t files);
    /// Tells the observer the final counts.
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
