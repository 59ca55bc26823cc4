#include "RamDiskInfrastructure/MacServices/MachSystemMemoryProvider.h"

#include "RamDiskInfrastructure/MacTools/HostMemory.h"

#include <cstdint>
#include <optional>

#include <mach/mach.h>
#include <sys/sysctl.h>
#include <unistd.h>

namespace ramdisk {

namespace {

/// The value of a kernel variable of exactly the size of `Value`.
template <typename Value>
std::optional<Value> kernelVariable(const char* name) {
    Value value{};
    std::size_t size = sizeof(value);
    if (::sysctlbyname(name, &value, &size, nullptr, 0) != 0 || size != sizeof(value)) {
        return std::nullopt;
    }
    return value;
}

std::optional<HostMemoryPages> hostPages() {
    vm_statistics64_data_t statistics{};
    mach_msg_type_number_t count = HOST_VM_INFO64_COUNT;
    const auto host = mach_host_self();
    const auto status =
        host_statistics64(host, HOST_VM_INFO64, reinterpret_cast<host_info64_t>(&statistics), &count);
    mach_port_deallocate(mach_task_self(), host);
    if (status != KERN_SUCCESS) {
        return std::nullopt;
    }
    return HostMemoryPages{.wired = statistics.wire_count,
                           .purgeable = statistics.purgeable_count,
                           .swapOuts = statistics.swapouts,
                           .compressor = statistics.compressor_page_count,
                           .internal = statistics.internal_page_count};
}

} // namespace

SystemMemory MachSystemMemoryProvider::read() const {
    HostMemoryReading reading;
    reading.physicalBytes = kernelVariable<std::uint64_t>("hw.memsize").value_or(0);
    reading.pageSize = static_cast<std::uint64_t>(::getpagesize());
    reading.pages = hostPages();
    if (const auto swap = kernelVariable<xsw_usage>("vm.swapusage")) {
        reading.swapUsedBytes = swap->xsu_used;
    }
    reading.pressureLevel = kernelVariable<std::int32_t>("kern.memorystatus_vm_pressure_level");
    return systemMemory(reading);
}

} // namespace ramdisk
