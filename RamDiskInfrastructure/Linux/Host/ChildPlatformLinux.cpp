#include "RamDiskInfrastructure/Commands/ChildPlatform.h"

#include <array>
#include <csignal>
#include <ctime>
#include <system_error>

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace ramdisk {

namespace {

constexpr int firstFreeDescriptor = 3;
/// What an unprivileged user may ask for by default.
constexpr int largePipe = 1024 * 1024;

void moveAboveStandard(FileDescriptor& descriptor) {
    if (descriptor.get() >= firstFreeDescriptor) {
        return;
    }
    FileDescriptor moved(fcntl(descriptor.get(), F_DUPFD_CLOEXEC, firstFreeDescriptor));
    if (!moved) {
        throw std::system_error(errno, std::generic_category(), "could not move a pipe");
    }
    descriptor = std::move(moved);
}

} // namespace

Pipe makePipe() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "could not make a pipe");
    }
    Pipe pipe{FileDescriptor(ends[0]), FileDescriptor(ends[1])};
    moveAboveStandard(pipe.readingEnd);
    moveAboveStandard(pipe.writingEnd);
    return pipe;
}

void prepareForWriting(const FileDescriptor& writingEnd) {
    if (fcntl(writingEnd.get(), F_SETFL, O_WRONLY | O_NONBLOCK) != 0) {
        throw std::system_error(errno, std::generic_category(), "could not prepare a pipe");
    }
}

ssize_t writeWithoutSignal(const FileDescriptor& writingEnd, std::string_view bytes) noexcept {
    // SIGPIPE comes to the writing thread alone: it is held back there, and taken away when it was ours.
    sigset_t brokenPipe;
    sigset_t before;
    sigset_t waiting;
    sigemptyset(&brokenPipe);
    sigaddset(&brokenPipe, SIGPIPE);
    sigpending(&waiting);
    const bool wasWaiting = sigismember(&waiting, SIGPIPE) == 1;
    pthread_sigmask(SIG_BLOCK, &brokenPipe, &before);
    const ssize_t written = ::write(writingEnd.get(), bytes.data(), bytes.size());
    const int error = errno;
    if (written < 0 && error == EPIPE && !wasWaiting) {
        const timespec atOnce{};
        while (sigtimedwait(&brokenPipe, nullptr, &atOnce) < 0 && errno == EINTR) {
        }
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    errno = error;
    return written;
}

void enlargePipe(const FileDescriptor& pipe) noexcept {
    // Refused when the user holds many large pipes already; the usual size serves as well.
    fcntl(pipe.get(), F_SETPIPE_SZ, largePipe);
}

FileDescriptor openExitDescriptor(pid_t child) noexcept {
    // By number: the library's wrapper is younger than the kernel's call (5.3).
    return FileDescriptor(static_cast<int>(syscall(SYS_pidfd_open, child, 0)));
}

int closeOtherDescriptors(posix_spawn_file_actions_t& actions, short& /*attributeFlags*/) noexcept {
    return posix_spawn_file_actions_addclosefrom_np(&actions, firstFreeDescriptor);
}

} // namespace ramdisk
