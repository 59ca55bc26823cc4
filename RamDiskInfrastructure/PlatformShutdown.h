#pragma once

#include "RamDiskCore/Ports/ShutdownDelaying.h"

#include <memory>

namespace ramdisk {

/// What this platform can do to delay a shutdown. Asks nobody until it is started.
[[nodiscard]] std::unique_ptr<ShutdownDelaying> makeShutdownDelay();

} // namespace ramdisk
