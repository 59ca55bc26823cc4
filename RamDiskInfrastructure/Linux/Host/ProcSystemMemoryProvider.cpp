#include "RamDiskInfrastructure/Linux/Host/ProcSystemMemoryProvider.h"

#include "RamDiskInfrastructure/Linux/Host/SmallFile.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <string>
#include <string_view>

#include <unistd.h>

namespace ramdisk {

namespace {

/// The number after `key` at the start of a line, whatever blanks lie between; 0 where the line is missing.
std::uint64_t numberAfter(std::string_view text, std::string_view key) {
    for (std::size_t start = 0; start < text.size();) {
        const auto end = std::min(text.find('\n', start), text.size());
        auto line = text.substr(start, end - start);
        if (line.starts_with(key)) {
            line.remove_prefix(std::min(line.find_first_not_of(": \t", key.size()), line.size()));
            std::uint64_t number = 0;
            std::from_chars(line.data(), line.data() + line.size(), number);
            return number;
        }
        start = end + 1;
    }
    return 0;
}

/// The figures of /proc/meminfo are in kilobytes.
ByteCount meminfo(std::string_view text, std::string_view key) {
    return ByteCount::of(numberAfter(text, std::string(key) + ":"), ByteCount::Unit::kibibyte);
}

/// The average of the last ten seconds in a line such as "some avg10=1.23 avg60=...".
double stalledShare(std::string_view text, std::string_view kind) {
    const auto line = text.find(std::string(kind) + " avg10=");
    if (line == std::string_view::npos) {
        return 0;
    }
    const std::string number(text.substr(line + kind.size() + 7, 8));
    return std::strtod(number.c_str(), nullptr);
}

MemoryPressureLevel pressureFrom(const std::optional<std::string>& stalls, const SystemMemory& memory) {
    if (stalls) {
        if (stalledShare(*stalls, "full") >= 5) {
            return MemoryPressureLevel::critical;
        }
        return stalledShare(*stalls, "some") >= 10 ? MemoryPressureLevel::warning
                                                   : MemoryPressureLevel::normal;
    }
    if (memory.available.bytes < memory.physical.bytes / 20) {
        return MemoryPressureLevel::critical;
    }
    return memory.available.bytes < memory.physical.bytes / 10 ? MemoryPressureLevel::warning
                                                               : MemoryPressureLevel::normal;
}

/// What the compressed swap devices really hold: the third figure of their statistics.
ByteCount heldByZram(const std::filesystem::path& sys) {
    ByteCount sum;
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator(sys / "block", ignored)) {
        if (!entry.path().filename().native().starts_with("zram")) {
            continue;
        }
        const auto text = tryReadSmallFile(entry.path() / "mm_stat").value_or("");
        const char* position = text.c_str();
        std::uint64_t held = 0;
        for (int field = 0; field < 3; ++field) {
            char* end = nullptr;
            held = std::strtoull(position, &end, 10);
            position = end;
        }
        sum.bytes += held;
    }
    return sum;
}

ByteCount installedMemory() {
    const auto pages = sysconf(_SC_PHYS_PAGES);
    const auto pageSize = sysconf(_SC_PAGESIZE);
    return {pages > 0 && pageSize > 0
                ? static_cast<std::uint64_t>(pages) * static_cast<std::uint64_t>(pageSize)
                : 0};
}

} // namespace

SystemMemory ProcSystemMemoryProvider::read() const {
    SystemMemory memory;
    const auto text = tryReadSmallFile(proc_ / "meminfo").value_or("");
    memory.physical = meminfo(text, "MemTotal");
    if (memory.physical.bytes == 0) {
        memory.physical = installedMemory();
        memory.available = memory.physical;
        return memory;
    }
    memory.available = std::min(meminfo(text, "MemAvailable"), memory.physical);
    for (const auto* key : {"KernelStack", "PageTables", "SUnreclaim", "Percpu"}) {
        memory.wired.bytes += meminfo(text, key).bytes;
    }
    memory.compressed = {meminfo(text, "Zswap").bytes + heldByZram(sys_).bytes};
    const auto swapTotal = meminfo(text, "SwapTotal");
    memory.swapUsed = {swapTotal.bytes - std::min(swapTotal, meminfo(text, "SwapFree")).bytes};
    memory.swapOuts = numberAfter(tryReadSmallFile(proc_ / "vmstat").value_or(""), "pswpout");
    memory.pressure = pressureFrom(tryReadSmallFile(proc_ / "pressure/memory"), memory);
    return memory;
}

} // namespace ramdisk
