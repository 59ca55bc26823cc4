#include "RamDiskInfrastructure/PlatformSettings.h"

#include <algorithm>
#include <array>

namespace ramdisk {

namespace {

constexpr std::array<std::string_view, 5> effective{"defaultSize", "defaultFileSystem",
                                                    "isIndexingEnabledByDefault",
                                                    "isEncryptionEnabledByDefault", "newDiskAccess"};

} // namespace

std::span<const PlatformSetting> platformSettings() {
    return {};
}

const PlatformSetting* platformSettingNamed(std::string_view /*name*/) {
    return nullptr;
}

bool settingHasEffect(std::string_view name) {
    return std::find(effective.begin(), effective.end(), name) != effective.end();
}

} // namespace ramdisk
