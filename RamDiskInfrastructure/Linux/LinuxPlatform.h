#pragma once

#include "RamDiskCore/Disks/RamDiskServices.h"
#include "RamDiskInfrastructure/Linux/Disks/LinuxContext.h"

#include <memory>

namespace ramdisk {

/// The use cases over the Linux adapters of one context.
[[nodiscard]] RamDiskServices makeLinuxServices(const std::shared_ptr<const LinuxContext>& context);

} // namespace ramdisk
