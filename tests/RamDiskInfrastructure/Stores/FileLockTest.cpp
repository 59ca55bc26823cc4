#include "RamDiskInfrastructure/Stores/FileLock.h"

#include "RamDiskInfrastructure/Stores/ApplicationSupportContentStorage.h"
#include "RamDiskInfrastructure/Tasks/TaskPool.h"
#include "tests/support/Testing.h"

namespace ramdisk::test {
namespace {

using std::chrono::milliseconds;

constexpr std::size_t waiterCount = 1000;

/// Runs tasks on the caller's thread, in a time of its own.
class ManualTasks final : public TaskScheduling {
public:
    void post(std::function<void()> task) override { tasks_.emplace(now_, std::move(task)); }
    void postAfter(milliseconds delay, std::function<void()> task) override {
        delays.push_back(delay);
        tasks_.emplace(now_ + delay, std::move(task));
    }
    void advance(milliseconds time) {
        const auto end = now_ + time;
        while (!tasks_.empty() && tasks_.begin()->first <= end) {
            auto task = tasks_.extract(tasks_.begin());
            now_ = task.key();
            task.mapped()();
        }
        now_ = end;
    }

    std::vector<milliseconds> delays;

private:
    milliseconds now_{0};
    std::multimap<milliseconds, std::function<void()>> tasks_;
};

std::ptrdiff_t openDescriptors() {
    const std::filesystem::directory_iterator descriptors("/dev/fd");
    return std::distance(begin(descriptors), end(descriptors));
}

TEST(FileLock, ThousandWaitersTryAtGrowingIntervalsAndHoldNothingMeanwhile) {
    const ScratchFolder scratch;
    const FileLock lock(scratch.path() / "x.lock");
    ManualTasks tasks;
    std::vector<std::future<void>> futures;
    std::size_t ran = 0;
    {
        const auto hold = lock.acquire();
        const auto before = openDescriptors();
        for (std::size_t index = 0; index < waiterCount; ++index) {
            futures.push_back(lock.withLock(tasks, [&] {
                EXPECT_TRUE(lock.isHeld());
                ++ran;
            }));
        }
        tasks.advance(milliseconds(1000));
        EXPECT_EQ(openDescriptors(), before);
    }
    std::vector<milliseconds> expected;
    for (const int interval : {10, 20, 40, 80, 160, 250, 250, 250}) {
        expected.insert(expected.end(), waiterCount, milliseconds(interval));
    }
    EXPECT_EQ(tasks.delays, expected);
    EXPECT_EQ(ran, 0U);
    tasks.advance(FileLock::longestWait);
    EXPECT_EQ(ran, waiterCount);
    for (auto& future : futures) {
        EXPECT_NO_THROW(future.get());
    }
    EXPECT_FALSE(lock.isHeld());
}

TEST(FileLock, ThousandWaitersOnAFewThreadsRunOneAtATime) {
    const ScratchFolder scratch;
    const FileLock lock(scratch.path() / "x.lock");
    TaskPool tasks(4);
    std::atomic<int> inside{0};
    std::atomic<std::size_t> ran{0};
    std::vector<std::future<void>> futures;
    for (std::size_t index = 0; index < waiterCount; ++index) {
        futures.push_back(lock.withLock(tasks, [&] {
            EXPECT_EQ(++inside, 1);
            ++ran;
            --inside;
        }));
    }
    for (auto& future : futures) {
        future.get();
    }
    EXPECT_EQ(ran, waiterCount);
}

TEST(FileLock, PassesOnWhatTheBodyThrewAndWhyItCouldNotBeMade) {
    const ScratchFolder scratch;
    ManualTasks tasks;
    const FileLock lock(scratch.path() / "x.lock");
    auto thrown = lock.withLock(tasks, [] { throw std::logic_error("mine"); });
    const FileLock below(scratch.path() / "x.lock/y.lock");
    auto failed = below.withLock(tasks, [] { FAIL(); });
    tasks.advance(milliseconds(0));
    EXPECT_FALSE(lock.isHeld());
    EXPECT_THROW(thrown.get(), std::logic_error);
    EXPECT_FALSE(below.isHeld());
    try {
        failed.get();
        FAIL();
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code().value(), ENOTDIR);
    }
}

TEST(TaskPool, DiscardsWhatWaitsWhenItGoes) {
    const ScratchFolder scratch;
    const FileLock lock(scratch.path() / "x.lock");
    const auto hold = lock.acquire();
    std::future<void> future;
    {
        TaskPool tasks(2);
        future = lock.withLock(tasks, [] { FAIL(); });
    }
    EXPECT_THROW(future.get(), std::future_error);
}

TEST(ContentStorage, LocksEachDiskAndItsResizeApart) {
    const ScratchFolder scratch;
    const auto tasks = std::make_shared<TaskPool>(2);
    const ApplicationSupportContentStorage storage(scratch.path(), tasks);
    const auto disk = UUID::parse("6f1d2a8e-3c1b-4e4a-9d0b-5a6e2c7b0001").value();
    EXPECT_EQ(storage.imageLocation(disk),
              scratch.path() / "Saved Contents/6F1D2A8E-3C1B-4E4A-9D0B-5A6E2C7B0001.sparseimage");
    const auto body = [&] {
        EXPECT_TRUE(storage.isLocked(disk));
        EXPECT_FALSE(storage.isResizeLocked(disk));
        EXPECT_FALSE(storage.isLocked(UUID::random()));
    };
    storage.withLock(disk, body).get();
    EXPECT_FALSE(storage.isLocked(disk));
    storage.withResizeLock(disk, [&] { EXPECT_TRUE(storage.isResizeLocked(disk)); }).get();
    EXPECT_TRUE(std::filesystem::exists(storage.unfinishedResizes() / (disk.text() + ".lock")));
}

} // namespace
} // namespace ramdisk::test
