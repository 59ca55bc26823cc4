#pragma once

#include "RamDiskInfrastructure/Commands/FileDescriptor.h"
#include "RamDiskInfrastructure/Tasks/TaskScheduling.h"

#include <chrono>
#include <filesystem>
#include <functional>
#include <future>
#include <optional>
#include <utility>

namespace ramdisk {

/// Keeps processes, and tasks of one process, from doing the same thing at the same time.
///
/// The lock hangs on an open descriptor of a companion file that holds no data: it ends when the descriptor
/// is closed, so a crashed holder gives it up at once and nothing stale is ever left. The file is made on
/// first use with its folder, and never deleted, since two processes could then hold locks on two files of
/// one name. The lock is advisory and not recursive: who holds it and asks again waits for himself.
class FileLock {
public:
    static constexpr std::chrono::milliseconds firstWait{10};
    static constexpr std::chrono::milliseconds longestWait{250};

    explicit FileLock(std::filesystem::path file) : file_(std::move(file)) {}

    [[nodiscard]] const std::filesystem::path& file() const noexcept { return file_; }

    /// Blocks the thread until the lock is free, and holds it as long as the descriptor lives.
    /// @throws std::system_error when the file cannot be made or locked.
    [[nodiscard]] FileDescriptor acquire() const;

    /// Holds the lock if it is free; absent when it is not.
    /// @throws std::system_error as above.
    [[nodiscard]] std::optional<FileDescriptor> tryAcquire() const;

    /// Runs `body` on `tasks` once the lock is free, however long that takes: attempts follow after 10, 20,
    /// 40, 80, 160 and then every 250 ms. Between two attempts a waiting body holds neither a thread nor a
    /// descriptor, so that thousands may wait. The lock is free again when the future ends, which passes on
    /// what the body threw, or why the file could not be locked. `tasks` outlives the wait.
    [[nodiscard]] std::future<void> withLock(TaskScheduling& tasks, std::function<void()> body) const;

    /// Whether somebody holds the lock now. False when that cannot be told.
    [[nodiscard]] bool isHeld() const noexcept;

private:
    [[nodiscard]] FileDescriptor open() const;

    std::filesystem::path file_;
};

} // namespace ramdisk
