#include "RamDiskInfrastructure/Platform/TrustedEnvironment.h"

#include <cstdlib>

namespace ramdisk {

std::optional<std::string> trustedEnvironmentValue(const char* name) {
    const char* value = secure_getenv(name);
    return value == nullptr || *value == '\0' ? std::nullopt : std::optional<std::string>(value);
}

} // namespace ramdisk
