#include "RamDiskInfrastructure/MacServices/FileManagerMountedVolumeListing.h"

#include "RamDiskCore/Values/Text.h"
#include "RamDiskInfrastructure/MacServices/CoreFoundationValue.h"

#include <array>

namespace ramdisk {

std::set<std::string>
FileManagerMountedVolumeListing::volumeNames(const std::optional<std::filesystem::path>& excluding) const {
    std::array<const void*, 1> keys{kCFURLVolumeNameKey};
    const CoreFoundationValue<CFArrayRef> wanted(
        CFArrayCreate(nullptr, keys.data(), static_cast<CFIndex>(keys.size()), &kCFTypeArrayCallBacks));
    const CoreFoundationValue<CFURLEnumeratorRef> volumes(
        CFURLEnumeratorCreateForMountedVolumes(nullptr, kCFURLEnumeratorDefaultBehavior, wanted.get()));
    const auto isExcluded = [excluded = decomposed(standardized(excluding.value_or("")))](CFURLRef volume) {
        const auto path = pathOfURL(volume);
        return path && decomposed(standardized(*path)) == excluded;
    };
    std::set<std::string> names;
    if (!volumes) {
        return names;
    }
    // The enumerator keeps the URL that it hands out.
    CFURLRef url = nullptr;
    for (auto result = kCFURLEnumeratorSuccess; result != kCFURLEnumeratorEnd;) {
        result = CFURLEnumeratorGetNextURL(volumes.get(), &url, nullptr);
        if (result != kCFURLEnumeratorSuccess || (excluding && isExcluded(url))) {
            continue;
        }
        if (auto name = stringResource(url, kCFURLVolumeNameKey)) {
            names.insert(std::move(*name));
        }
    }
    return names;
}

} // namespace ramdisk
