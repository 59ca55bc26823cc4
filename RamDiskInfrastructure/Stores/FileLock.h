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
/// The lock belongs to an open descriptor of a companion file without data. It ends when the descriptor is
/// closed. So a holder that crashes releases it at once, and nothing stale is left. The file and its folder
/// are made on first use. The file is never deleted: otherwise two processes could hold locks on two files of
/// the same name. The lock is advisory and not recursive: a holder that asks for it again waits forever.
class FileLock {
public:
    static constexpr std::chrono::milliseconds firstWait{10};
    static constexpr std::chrono::milliseconds longestWait{250};

    explicit FileLock(std::filesystem::path file) : file_(std::move(file)) {}

    [[nodiscard]] const std::filesystem::path& file() const noexcept { return file_; }

    /// Blocks the thread until the lock is free, and holds it until the descriptor is closed.
    /// @throws std::system_error when the file cannot be made or locked.
    [[nodiscard]] FileDescriptor acquire() const;

    /// Holds the lock if it is free; absent when it is not.
    /// @throws std::system_error as above.
    [[nodiscard]] std::optional<FileDescriptor> tryAcquire() const;

    /// Runs `body` on `tasks` once the lock is free, however long that takes. It tries again after 10, 20,
    /// 40, 80, 160 and then every 250 ms. Between two tries a waiting body holds neither a thread nor a
    /// descriptor, so thousands may wait. When the future ends, the lock is free again. The future passes on
    /// what the body threw, or why the file could not be locked; it tells so to `get` and `wait` only.
    /// `tasks` must outlive the wait.
    [[nodiscard]] std::future<void> withLock(TaskScheduling& tasks, std::function<void()> body) const;

    /// Whether somebody holds the lock now. False when that cannot be told.
    [[nodiscard]] bool isHeld() const noexcept;

private:
    [[nodiscard]] FileDescriptor open() const;

    std::filesystem::path file_;
};

} // namespace ramdisk
