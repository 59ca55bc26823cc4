#pragma once

#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace ramdisk {

/// Owns one open descriptor, or none, and closes it. Callers open it with close-on-exec. When the process
/// ends or crashes, the kernel closes it as well, and releases every lock on it.
class FileDescriptor {
public:
    FileDescriptor() = default;
    /// Takes over the result of `open` or a similar call. A negative number is no descriptor.
    explicit FileDescriptor(int descriptor) noexcept : descriptor_(descriptor < 0 ? none : descriptor) {}
    FileDescriptor(FileDescriptor&& other) noexcept : descriptor_(other.release()) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        reset(other.release());
        return *this;
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    ~FileDescriptor() { reset(); }

    [[nodiscard]] explicit operator bool() const noexcept { return descriptor_ != none; }
    /// The number, for system calls; -1 when there is none.
    [[nodiscard]] int get() const noexcept { return descriptor_; }

    /// Gives the descriptor to the caller, who closes it.
    [[nodiscard]] int release() noexcept { return std::exchange(descriptor_, none); }

    /// Closes the descriptor and takes over another one, or none. Keeps errno, so that a failed call can
    /// still be reported afterwards.
    void reset(int descriptor = none) noexcept {
        const int old = std::exchange(descriptor_, descriptor < 0 ? none : descriptor);
        if (old != none && old != descriptor_) {
            const int error = errno;
            // Not repeated after EINTR: the number is free by then and may be another thread's.
            ::close(old);
            errno = error;
        }
    }

private:
    static constexpr int none = -1;
    int descriptor_ = none;
};

/// Opens the folder `name` inside another one, or a whole path with AT_FDCWD. Returns no descriptor, and sets
/// errno, when it cannot be opened, is a link or is not a folder.
[[nodiscard]] inline FileDescriptor openFolder(int parent, const char* name) noexcept {
    return FileDescriptor(openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

} // namespace ramdisk
