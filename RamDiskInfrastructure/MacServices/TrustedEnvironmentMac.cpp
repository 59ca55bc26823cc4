#include "RamDiskInfrastructure/Platform/TrustedEnvironment.h"

#include <cstdlib>

#include <unistd.h>

namespace ramdisk {

std::optional<std::string> trustedEnvironmentValue(const char* name) {
    const char* value = issetugid() != 0 ? nullptr : std::getenv(name);
    return value == nullptr || *value == '\0' ? std::nullopt : std::optional<std::string>(value);
}

} // namespace ramdisk
