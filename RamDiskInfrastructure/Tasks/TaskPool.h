#pragma once

#include "RamDiskInfrastructure/Tasks/TaskScheduling.h"

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace ramdisk {

/// A few threads that share one queue, ordered by when a task is due. A thread is started only when there is
/// work and none is idle, so an unused pool costs nothing.
///
/// The destructor waits for running tasks and discards waiting ones. A promise that a discarded task would
/// have kept is broken.
class TaskPool final : public TaskScheduling {
public:
    static constexpr std::size_t usualThreadCount = 4;

    explicit TaskPool(std::size_t threadLimit = usualThreadCount);
    ~TaskPool() override;

    void post(std::function<void()> task) override;
    void postAfter(std::chrono::milliseconds delay, std::function<void()> task) override;

private:
    using Clock = std::chrono::steady_clock;
    /// When a task is due, and its number among all, so that equally urgent ones keep their order.
    using Turn = std::pair<Clock::time_point, std::uint64_t>;

    void postAt(Clock::time_point due, std::function<void()> task);
    void work();

    const std::size_t threadLimit_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::map<Turn, std::function<void()>> waiting_;
    std::uint64_t posted_ = 0;
    std::size_t idle_ = 0;
    bool isStopping_ = false;
    std::vector<std::thread> threads_;
};

} // namespace ramdisk
