#pragma once

#include "RamDiskInfrastructure/Stores/FileLock.h"

#include <chrono>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace ramdisk {

/// What a file holds that is about to be replaced.
enum class FormerContent {
    /// Nothing, or what the reader understood.
    readable,
    /// Something that the reader did not understand, so it is worth keeping.
    unreadable,
};

/// A small file that several processes read, and change under a lock. The stored lists and the user defaults
/// are built on it.
class LockedFile {
public:
    using Clock = std::chrono::system_clock::time_point (*)();

    LockedFile(std::filesystem::path file, FileLock lock, Clock clock = std::chrono::system_clock::now)
        : file_(std::move(file)),
          lock_(std::move(lock)),
          clock_(clock) {}

    [[nodiscard]] const std::filesystem::path& file() const noexcept { return file_; }
    [[nodiscard]] const FileLock& lock() const noexcept { return lock_; }

    /// The content, read without the lock; absent when there is no file or it cannot be read.
    /// @throws std::runtime_error as `openStoreFolder`.
    [[nodiscard]] std::optional<std::string> read() const;

    /// Whether there is anything with the file's name.
    [[nodiscard]] bool exists() const;

    /// What a user is told whose file is there but is not understood.
    [[nodiscard]] std::runtime_error unreadable() const;

    /// Removes the unfinished changes of killed processes. Changes that are going on are left alone.
    void clearUp() const noexcept;

    /// Replaces the content, atomically and durably. Content that nobody could read is first set aside in the
    /// same folder, as NAME.unreadable-SECONDS.json.
    /// @throws std::system_error; the former content is then still in place.
    void replace(std::string_view content, FormerContent former) const;

private:
    void setAside() const;

    std::filesystem::path file_;
    FileLock lock_;
    Clock clock_;
};

} // namespace ramdisk
