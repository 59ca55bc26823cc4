#include "RamDiskInfrastructure/MacServices/ProcessFootprintReader.h"

#include <libproc.h>
#include <sys/resource.h>

namespace ramdisk {

std::optional<ByteCount> ProcessFootprintReader::footprint(std::int32_t processID) const {
    rusage_info_v4 usage{};
    if (::proc_pid_rusage(processID, RUSAGE_INFO_V4, reinterpret_cast<rusage_info_t*>(&usage)) != 0) {
        return std::nullopt;
    }
    return ByteCount{usage.ri_phys_footprint};
}

} // namespace ramdisk
