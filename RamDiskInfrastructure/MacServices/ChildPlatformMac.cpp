#include "RamDiskInfrastructure/Commands/ChildPlatform.h"

#include <array>
#include <system_error>

#include <fcntl.h>
#include <sys/event.h>
#include <unistd.h>

namespace ramdisk {

namespace {

constexpr int firstFreeDescriptor = 3;

/// Closed on exec, and above the standard descriptors.
FileDescriptor placed(FileDescriptor descriptor) {
    const int number = descriptor.get();
    const bool isLow = number < firstFreeDescriptor;
    const int result =
        isLow ? fcntl(number, F_DUPFD_CLOEXEC, firstFreeDescriptor) : fcntl(number, F_SETFD, FD_CLOEXEC);
    if (result < 0) {
        throw std::system_error(errno, std::generic_category(), "could not prepare a pipe");
    }
    return isLow ? FileDescriptor(result) : std::move(descriptor);
}

} // namespace

Pipe makePipe() {
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0) {
        throw std::system_error(errno, std::generic_category(), "could not make a pipe");
    }
    FileDescriptor readingEnd(ends[0]);
    FileDescriptor writingEnd(ends[1]);
    return {placed(std::move(readingEnd)), placed(std::move(writingEnd))};
}

void prepareForWriting(const FileDescriptor& writingEnd) {
    if (fcntl(writingEnd.get(), F_SETNOSIGPIPE, 1) != 0
        || fcntl(writingEnd.get(), F_SETFL, O_WRONLY | O_NONBLOCK) != 0) {
        throw std::system_error(errno, std::generic_category(), "could not prepare a pipe");
    }
}

ssize_t writeWithoutSignal(const FileDescriptor& writingEnd, std::string_view bytes) noexcept {
    return ::write(writingEnd.get(), bytes.data(), bytes.size());
}

void enlargePipe(const FileDescriptor& /*pipe*/) noexcept {
    // The kernel enlarges a pipe by itself while it is written to.
}

FileDescriptor openExitDescriptor(pid_t child) noexcept {
    FileDescriptor queue(kqueue());
    if (!queue) {
        return {};
    }
    fcntl(queue.get(), F_SETFD, FD_CLOEXEC);
    struct kevent exit {};
    EV_SET(&exit, static_cast<uintptr_t>(child), EVFILT_PROC, EV_ADD | EV_ONESHOT, NOTE_EXIT, 0, nullptr);
    // Refused for a child that has ended already.
    return kevent(queue.get(), &exit, 1, nullptr, 0, nullptr) == 0 ? std::move(queue) : FileDescriptor();
}

int closeOtherDescriptors(posix_spawn_file_actions_t& /*actions*/, short& attributeFlags) noexcept {
    attributeFlags = static_cast<short>(attributeFlags | POSIX_SPAWN_CLOEXEC_DEFAULT);
    return 0;
}

} // namespace ramdisk
