#pragma once

#include "RamDiskCore/Setup/RamDiskSessionServices.h"
#include "RamDiskInfrastructure/Platform/Platform.h"
#include "tramdisk/Console.h"

namespace ramdisk::cli {

/// What every subcommand works with.
struct CommandContext {
    const Platform& platform;
    const RamDiskServices& services;
    const RamDiskSessionServices& session;
    const PlatformStores& stores;
    const Console& console;
};

/// The exit statuses that scripts rely on.
enum ExitStatus : int { succeeded = 0, failed = 1, wrongCommandLine = 2 };

} // namespace ramdisk::cli
