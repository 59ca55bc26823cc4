#include "RamDiskInfrastructure/Tasks/TaskPool.h"

namespace ramdisk {

TaskPool::TaskPool(std::size_t threadLimit) : threadLimit_(threadLimit == 0 ? 1 : threadLimit) {}

TaskPool::~TaskPool() {
    std::map<Turn, std::function<void()>> discarded;
    {
        const std::lock_guard lock(mutex_);
        isStopping_ = true;
        discarded.swap(waiting_);
    }
    changed_.notify_all();
    for (auto& thread : threads_) {
        thread.join();
    }
}

void TaskPool::post(std::function<void()> task) {
    postAt(Clock::now(), std::move(task));
}

void TaskPool::postAfter(std::chrono::milliseconds delay, std::function<void()> task) {
    postAt(Clock::now() + delay, std::move(task));
}

void TaskPool::postAt(Clock::time_point due, std::function<void()> task) {
    const std::lock_guard lock(mutex_);
    if (isStopping_) {
        return;
    }
    waiting_.emplace(Turn{due, posted_++}, std::move(task));
    if (idle_ == 0 && threads_.size() < threadLimit_) {
        threads_.emplace_back([this] { work(); });
    } else {
        changed_.notify_one();
    }
}

void TaskPool::work() {
    std::unique_lock lock(mutex_);
    while (!isStopping_) {
        if (waiting_.empty() || waiting_.begin()->first.first > Clock::now()) {
            ++idle_;
            if (waiting_.empty()) {
                changed_.wait(lock);
            } else {
                const auto due = waiting_.begin()->first.first;
                changed_.wait_until(lock, due);
            }
            --idle_;
            continue;
        }
        auto task = waiting_.extract(waiting_.begin());
        lock.unlock();
        task.mapped()();
        // What the task holds may end somebody's wait and must not go under the mutex.
        task = {};
        lock.lock();
    }
}

} // namespace ramdisk
