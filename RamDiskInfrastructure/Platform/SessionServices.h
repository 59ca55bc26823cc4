#pragma once

#include "RamDiskCore/Ports/FolderRedirecting.h"
#include "RamDiskCore/Setup/RamDiskSessionServices.h"
#include "RamDiskInfrastructure/Platform/PlatformStores.h"

#include <memory>

namespace ramdisk {

/// Builds what knows of startup disks, saved files and redirects. Opens no file and starts no thread.
[[nodiscard]] RamDiskSessionServices
makeSessionServices(const RamDiskServices& services, const PlatformStores& stores,
                    const std::shared_ptr<FolderRedirecting>& redirecting);

} // namespace ramdisk
