#include "RamDiskInfrastructure/Stores/FileLock.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/Stores/StoredFile.h"

#include <algorithm>
#include <exception>
#include <memory>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>

namespace ramdisk {

namespace {

constexpr mode_t lockMode = 0600;

/// One body that waits for a lock, kept by whichever task is to try next.
struct Waiter {
    FileLock lock;
    TaskScheduling& tasks;
    std::function<void()> body;
    std::chrono::milliseconds nextWait = FileLock::firstWait;
    std::promise<void> done{};
    /// Where what the body threw is before `done` is kept.
    std::shared_ptr<std::exception_ptr> failure = std::make_shared<std::exception_ptr>();
};

void attempt(const std::shared_ptr<Waiter>& waiter) {
    std::exception_ptr failure;
    try {
        const auto hold = waiter->lock.tryAcquire();
        if (!hold) {
            const auto wait = waiter->nextWait;
            if (wait == FileLock::firstWait) {
                trace("locks", "waiting for {}", waiter->lock.file().native());
            }
            waiter->nextWait = std::min(wait * 2, FileLock::longestWait);
            waiter->tasks.postAfter(wait, [waiter] { attempt(waiter); });
            return;
        }
        waiter->body();
    } catch (...) {
        failure = std::current_exception();
    }
    // Handed over whole, so that this thread does not destroy it while the other reads it.
    *waiter->failure = std::move(failure);
    waiter->done.set_value();
}

} // namespace

FileDescriptor FileLock::open() const {
    const auto name = file_.filename();
    for (;;) {
        const auto folder = openStoreFolder(file_.parent_path());
        FileDescriptor existing(folder ? openat(folder.get(), name.c_str(), O_RDWR | O_NOFOLLOW | O_CLOEXEC)
                                       : -1);
        if (existing) {
            return existing;
        }
        if (errno == ENOENT) {
            if (!folder) {
                makeFolders(file_.parent_path());
                continue;
            }
            FileDescriptor made(openat(folder.get(), name.c_str(),
                                       O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, lockMode));
            if (made) {
                giveToOwnerOf(folder, made);
                return made;
            }
            if (errno == EEXIST || errno == ENOENT) {
                continue;
            }
        }
        if (errno != EINTR) {
            throw SystemCallError("open the lock", file_);
        }
    }
}

FileDescriptor FileLock::acquire() const {
    auto lock = open();
    if (flock(lock.get(), LOCK_EX | LOCK_NB) == 0) {
        return lock;
    }
    trace("locks", "waiting for {}", file_.native());
    while (flock(lock.get(), LOCK_EX) != 0) {
        if (errno != EINTR) {
            throw SystemCallError("lock", file_);
        }
    }
    return lock;
}

std::optional<FileDescriptor> FileLock::tryAcquire() const {
    auto lock = open();
    if (flock(lock.get(), LOCK_EX | LOCK_NB) == 0) {
        return lock;
    }
    if (errno != EWOULDBLOCK && errno != EINTR) {
        throw SystemCallError("lock", file_);
    }
    return std::nullopt;
}

std::future<void> FileLock::withLock(TaskScheduling& tasks, std::function<void()> body) const {
    const auto waiter = std::make_shared<Waiter>(Waiter{*this, tasks, std::move(body)});
    auto done = waiter->done.get_future();
    auto failure = waiter->failure;
    tasks.post([waiter] { attempt(waiter); });
    return std::async(std::launch::deferred,
                      [done = std::move(done), failure = std::move(failure)]() mutable {
                          done.get();
                          if (*failure) {
                              std::rethrow_exception(std::exchange(*failure, nullptr));
                          }
                      });
}

bool FileLock::isHeld() const noexcept {
    try {
        const auto probe = open();
        return flock(probe.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
    } catch (const std::exception&) {
        traceCaught("locks", "taken as free");
        return false;
    }
}

} // namespace ramdisk
