#pragma once

#include "RamDiskCore/Ports/SystemMemoryProviding.h"

#include <filesystem>

namespace ramdisk {

/// Reads the machine's memory from /proc and /sys.
class ProcSystemMemoryProvider final : public SystemMemoryProviding {
public:
    explicit ProcSystemMemoryProvider(std::filesystem::path proc = "/proc",
                                      std::filesystem::path sys = "/sys")
        : proc_(std::move(proc)),
          sys_(std::move(sys)) {}

    [[nodiscard]] SystemMemory read() const override;

private:
    std::filesystem::path proc_;
    std::filesystem::path sys_;
};

} // namespace ramdisk
