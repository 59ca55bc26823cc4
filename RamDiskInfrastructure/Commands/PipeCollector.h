#pragma once

#include "RamDiskInfrastructure/Commands/FileDescriptor.h"

#include <cstddef>
#include <string>
#include <utility>

namespace ramdisk {

/// Collects what a child writes to one of its streams. It blocks only when told to read while nothing is
/// there, so the caller polls `descriptor`.
class PipeCollector {
public:
    /// @throws std::system_error
    PipeCollector();

    /// The end that the child writes to. It must be closed here once the child has it. Otherwise the stream
    /// never ends.
    [[nodiscard]] FileDescriptor& writingEnd() noexcept { return writingEnd_; }

    /// The number to poll for reading; -1, which `poll` skips, after the end of the stream.
    [[nodiscard]] int descriptor() const noexcept { return handle_.get(); }

    /// Whether the end of the stream was seen.
    [[nodiscard]] bool isFinished() const noexcept { return isFinished_; }

    /// Reads once what the poll announced. @throws std::system_error
    void read();

    /// Reads what is in the pipe now and no more, however fast somebody goes on writing.
    /// @throws std::system_error
    void readWaiting();

    /// Moves the received data out of this collector.
    [[nodiscard]] std::string takeData() noexcept { return std::move(data_); }

private:
    std::size_t append();
    std::size_t readInto(char* buffer, std::size_t size);

    FileDescriptor handle_;
    FileDescriptor writingEnd_;
    std::string data_;
    bool isFinished_ = false;
    bool isPipeEnlarged_ = false;
};

} // namespace ramdisk
