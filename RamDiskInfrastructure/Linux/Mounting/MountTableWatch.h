#pragma once

#include "RamDiskCore/Ports/MountWatching.h"
#include "RamDiskInfrastructure/Commands/FileDescriptor.h"

#include <filesystem>
#include <thread>

namespace ramdisk {

/// Waits for the kernel to announce changes of this process's mount table.
class MountTableWatch final : public MountWatching {
public:
    /// @param proc where the process file system is mounted.
    explicit MountTableWatch(std::filesystem::path proc = "/proc");
    MountTableWatch(const MountTableWatch&) = delete;
    MountTableWatch& operator=(const MountTableWatch&) = delete;
    ~MountTableWatch() override;

    void start(std::function<void()> changed) override;
    void stop() noexcept override;

private:
    std::filesystem::path proc_;
    FileDescriptor table_;
    /// Readable once the watch is to end.
    FileDescriptor end_;
    std::thread thread_;
};

} // namespace ramdisk
