#pragma once

#include "RamDiskCore/Ports/SystemCommand.h"

#include <cstdint>
#include <string>
#include <utility>

/// How the scripted tools end.
namespace ramdisk::test {

inline CommandOutput succeeds(std::string output, std::string errors = {}) {
    return {0, std::move(output), std::move(errors)};
}

inline CommandOutput fails(std::int32_t exitCode, std::string errors, std::string output = {}) {
    return {exitCode, std::move(output), std::move(errors)};
}

} // namespace ramdisk::test
