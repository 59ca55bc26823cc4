#pragma once

#include "RamDiskCore/Ports/FolderRedirecting.h"

#include <memory>

namespace ramdisk {

/// Builds what puts this user's folder redirects in place on this platform. Touches nothing before it is
/// used.
/// @throws std::exception when the environment holds what cannot be meant.
[[nodiscard]] std::shared_ptr<FolderRedirecting> makeFolderRedirecting();

} // namespace ramdisk
