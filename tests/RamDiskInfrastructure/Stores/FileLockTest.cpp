#include "RamDiskInfrastructure/Stores/FileLock.h"

#include "RamDiskInfrastructure/Stores/ApplicationSupportContentStorage.h"
#include "RamDiskInfrastructure/Tasks/TaskPool.h"
#include "tests/support/ScratchFolder.h"

#include <gmock/gmock.h>

#include <atomic>
#include <map>

#include <sys/stat.h>

namespace ramdisk::test {
namespace {

using std::chrono::milliseconds;
using testing::Each;
using testing::ElementsAre;

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

TEST(FileLock, IsMadeWithItsFolderAndForTheOwnerAlone) {
    const ScratchFolder scratch;
    const FileLock lock(scratch.path() / "a/b/c.lock");
    const auto hold = lock.acquire();
    struct stat status {};
    ASSERT_EQ(stat(lock.file().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
    EXPECT_EQ(status.st_size, 0);
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
    const std::vector<milliseconds> intervals{milliseconds(10),  milliseconds(20),  milliseconds(40),
                                              milliseconds(80),  milliseconds(160), milliseconds(250),
                                              milliseconds(250), milliseconds(250)};
    ASSERT_EQ(tasks.delays.size(), waiterCount * intervals.size());
    for (std::size_t round = 0; round < intervals.size(); ++round) {
        const auto first = tasks.delays.begin() + static_cast<std::ptrdiff_t>(round * waiterCount);
        EXPECT_THAT(std::vector(first, first + static_cast<std::ptrdiff_t>(waiterCount)),
                    Each(intervals[round]));
    }
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

TEST(FileLock, IsFreeWhenTheFutureEndsWithTheBodysError) {
    const ScratchFolder scratch;
    const FileLock lock(scratch.path() / "x.lock");
    ManualTasks tasks;
    auto future = lock.withLock(tasks, [] { throw std::logic_error("mine"); });
    tasks.advance(milliseconds(0));
    EXPECT_FALSE(lock.isHeld());
    EXPECT_THROW(future.get(), std::logic_error);
}

TEST(FileLock, ThatCannotBeMadeTellsTheErrno) {
    const ScratchFolder scratch;
    scratch.write("file", "");
    const FileLock lock(scratch.path() / "file/x.lock");
    try {
        static_cast<void>(lock.acquire());
        FAIL();
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code().value(), ENOTDIR);
    }
    EXPECT_FALSE(lock.isHeld());
    ManualTasks tasks;
    auto future = lock.withLock(tasks, [] { FAIL(); });
    tasks.advance(milliseconds(0));
    EXPECT_THROW(future.get(), std::system_error);
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
    const auto other = UUID::random();
    EXPECT_EQ(storage.imageLocation(disk),
              scratch.path() / "Saved Contents/6F1D2A8E-3C1B-4E4A-9D0B-5A6E2C7B0001.sparseimage");
    storage
        .withLock(disk,
                  [&] {
                      EXPECT_TRUE(storage.isLocked(disk));
                      EXPECT_FALSE(storage.isResizeLocked(disk));
                      EXPECT_FALSE(storage.isLocked(other));
                  })
        .get();
    EXPECT_FALSE(storage.isLocked(disk));
    storage.withResizeLock(disk, [&] { EXPECT_TRUE(storage.isResizeLocked(disk)); }).get();
    EXPECT_TRUE(std::filesystem::exists(storage.unfinishedResizes() / (disk.text() + ".lock")));
}

} // namespace
} // namespace ramdisk::test
