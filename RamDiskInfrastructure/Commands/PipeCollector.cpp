#include "RamDiskInfrastructure/Commands/PipeCollector.h"

#include "RamDiskInfrastructure/Commands/ChildPlatform.h"

#include <algorithm>
#include <array>
#include <system_error>

#include <sys/ioctl.h>
#include <unistd.h>

namespace ramdisk {

namespace {

constexpr std::size_t bufferSize = 64 * 1024;

} // namespace

PipeCollector::PipeCollector() {
    auto pipe = makePipe();
    handle_ = std::move(pipe.readingEnd);
    writingEnd_ = std::move(pipe.writingEnd);
}

void PipeCollector::read() {
    if (append() == 0) {
        isFinished_ = true;
        handle_.reset();
    }
}

void PipeCollector::readWaiting() {
    int waiting = 0;
    if (isFinished_ || ::ioctl(handle_.get(), FIONREAD, &waiting) != 0) {
        return;
    }
    for (auto left = static_cast<std::size_t>(waiting); left > 0;) {
        const auto received = append();
        if (received == 0) {
            return;
        }
        left -= std::min(left, received);
    }
}

std::size_t PipeCollector::append() {
    std::array<char, bufferSize> buffer; // NOLINT: filled by the read
    const auto received = readInto(buffer.data(), buffer.size());
    if (received == buffer.size() && !isPipeEnlarged_) {
        isPipeEnlarged_ = true;
        enlargePipe(handle_);
    }
    data_.append(buffer.data(), received);
    return received;
}

std::size_t PipeCollector::readInto(char* buffer, std::size_t size) {
    ssize_t received = 0;
    do {
        received = ::read(handle_.get(), buffer, size);
    } while (received < 0 && errno == EINTR);
    if (received < 0) {
        throw std::system_error(errno, std::generic_category(), "could not read what a command wrote");
    }
    return static_cast<std::size_t>(received);
}

} // namespace ramdisk
