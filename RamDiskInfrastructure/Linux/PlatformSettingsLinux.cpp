#include "RamDiskInfrastructure/PlatformSettings.h"

#include <algorithm>
#include <array>

namespace ramdisk {

namespace {

constexpr std::array settings{PlatformSetting{"allowsKeyFile", false}};

constexpr std::array<std::string_view, 6> effective{
    "defaultSize",   "defaultFileSystem", "isIndexingEnabledByDefault", "isEncryptionEnabledByDefault",
    "newDiskAccess", "allowsKeyFile"};

} // namespace

std::span<const PlatformSetting> platformSettings() {
    return settings;
}

const PlatformSetting* platformSettingNamed(std::string_view name) {
    const auto found = std::find_if(settings.begin(), settings.end(),
                                    [name](const PlatformSetting& setting) { return setting.name == name; });
    return found == settings.end() ? nullptr : &*found;
}

bool settingHasEffect(std::string_view name) {
    return std::find(effective.begin(), effective.end(), name) != effective.end();
}

} // namespace ramdisk
