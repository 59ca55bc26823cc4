#include "RamDiskInfrastructure/Trees/ParallelJobs.h"

#include <algorithm>
#include <exception>
#include <thread>
#include <vector>

namespace ramdisk {

namespace {

constexpr std::size_t jobsAtATime = 8;
constexpr std::size_t jobsWorthAThread = 256;
/// When each takes longer than a microsecond or two.
constexpr std::size_t longJobsWorthAThread = 16;
constexpr std::uint64_t bytesWorthAThread = 8U << 20U;
constexpr unsigned mostProcessors = 4;
/// So many workers that wait keep the device busy, and a processor with what it delivers.
constexpr unsigned waitingPerProcessor = 4;
constexpr auto betweenReports = std::chrono::milliseconds(30);

} // namespace

ParallelJobs::ParallelJobs(std::size_t jobs, std::uint64_t bytes, Load load) : jobs_(jobs), workers_(1) {
    const auto enough = load == Load::brief ? jobsWorthAThread : longJobsWorthAThread;
    if (jobs > 1 && (jobs >= enough || bytes >= bytesWorthAThread)) {
        const auto processors = std::clamp(std::thread::hardware_concurrency(), 2U, mostProcessors);
        workers_ = load == Load::waiting ? processors * waitingPerProcessor : processors;
        workers_ = static_cast<unsigned>(std::min<std::size_t>(workers_, jobs));
    }
}

void ParallelJobs::run(const MakeWorker& makeWorker) const {
    std::atomic<std::size_t> next{0};
    std::atomic<bool> failed{false};
    std::mutex mutex;
    std::exception_ptr failure;
    const auto step = jobs_ >= jobsWorthAThread ? jobsAtATime : 1;
    const auto work = [&](unsigned worker) {
        try {
            const auto doJob = makeWorker(worker);
            for (auto first = next.fetch_add(step); first < jobs_; first = next.fetch_add(step)) {
                for (auto job = first; job < std::min(first + step, jobs_) && !failed; ++job) {
                    doJob(job);
                }
            }
        } catch (...) {
            const std::lock_guard lock(mutex);
            failed = true;
            if (!failure) {
                failure = std::current_exception();
            }
        }
    };
    std::vector<std::thread> threads;
    try {
        for (unsigned worker = 1; worker < workers_; ++worker) {
            threads.emplace_back(work, worker);
        }
    } catch (const std::system_error&) {
        // No more threads to be had: those that run do the work.
    }
    work(0);
    for (auto& thread : threads) {
        thread.join();
    }
    if (failure) {
        std::rethrow_exception(failure);
    }
}

void ProgressMeter::expect(std::uint64_t bytes, std::uint64_t files) {
    const std::lock_guard lock(telling_);
    totalBytes_ = bytes;
    totalFiles_ = files;
}

void ProgressMeter::add(std::uint64_t bytes, std::uint64_t files) {
    bytes_ += bytes;
    files_ += files;
    if (observer_) {
        const std::unique_lock lock(telling_, std::try_to_lock);
        const auto now = std::chrono::steady_clock::now();
        if (lock && now - lastTold_ >= betweenReports) {
            lastTold_ = now;
            tell();
        }
    }
}

void ProgressMeter::finish() {
    if (observer_) {
        const std::lock_guard lock(telling_);
        tell();
    }
}

void ProgressMeter::tell() {
    observer_({bytes_, std::max<std::uint64_t>(totalBytes_, totalBytes_ == 0 ? 0 : bytes_.load()), files_,
               totalFiles_});
}

} // namespace ramdisk
