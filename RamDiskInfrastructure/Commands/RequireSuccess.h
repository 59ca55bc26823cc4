#pragma once

#include "RamDiskInfrastructure/Commands/SystemCallError.h"

namespace ramdisk {

/// For calls that return 0 or an errno.
/// @throws SystemCallError unless `error` is 0.
inline void requireSuccess(int error, const char* doing, const std::filesystem::path& path) {
    if (error != 0) {
        throw SystemCallError(doing, path, error);
    }
}

} // namespace ramdisk
