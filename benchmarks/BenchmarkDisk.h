#pragma once

#include "RamDiskInfrastructure/Commands/FileDescriptor.h"

#include <filesystem>
#include <functional>

namespace ramdisk::benchmarks {

/// What a piece of work took until the system disk had all of it.
struct DiskCost {
    double seconds = 0;
    /// What the whole disk wrote meanwhile, also for other programs; not a number where the kernel does not
    /// tell.
    double mebibytesWritten = 0;
};

/// The disk that a folder lies on. The folder must outlive it.
class BenchmarkDisk {
public:
    /// @throws std::runtime_error when the folder lies in memory, so that nothing could be measured.
    explicit BenchmarkDisk(const std::filesystem::path& folder);

    /// Does the work and waits until the file system has written everything; what other work left behind is
    /// written first.
    [[nodiscard]] DiskCost costOf(const std::function<void()>& work) const;

    void flush() const;
    /// Has the kernel forget all files that it read. @throws std::system_error for one who is not root.
    void forgetCaches() const;

private:
    /// In MiB since the machine started.
    [[nodiscard]] double written() const;

    FileDescriptor folder_;
    std::filesystem::path statistics_;
};

} // namespace ramdisk::benchmarks
