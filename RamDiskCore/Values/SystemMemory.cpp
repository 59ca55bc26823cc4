#include "RamDiskCore/Values/SystemMemory.h"

namespace ramdisk {

std::string_view rawValue(MemoryPressureLevel level) {
    switch (level) {
    case MemoryPressureLevel::normal:
        return "normal";
    case MemoryPressureLevel::warning:
        return "warning";
    case MemoryPressureLevel::critical:
        return "critical";
    }
    return "normal";
}

} // namespace ramdisk
