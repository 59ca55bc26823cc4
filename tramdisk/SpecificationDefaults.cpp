#include "tramdisk/SpecificationDefaults.h"

#include "RamDiskCore/Validation/VolumeNameSuggester.h"

#include <vector>

namespace ramdisk::cli {

RamDiskSpecification specificationFrom(const SpecificationOptions& options, const CommandContext& context) {
    const auto preferences = context.stores.preferences->load();
    RamDiskSpecification specification;
    specification.size = options.size.value_or(preferences.defaultSize);
    specification.fileSystem = options.fileSystem.value_or(preferences.defaultFileSystem);
    specification.access = options.access.value_or(preferences.newDiskAccess);
    specification.isEncrypted = options.isEncrypted.value_or(preferences.isEncryptionEnabledByDefault);
    specification.isIndexingEnabled =
        options.isIndexingEnabled.value_or(preferences.isIndexingEnabledByDefault);
    if (options.name) {
        specification.name = *options.name;
    } else {
        const auto mounted = context.services.validationContext.volumes->volumeNames(std::nullopt);
        const std::vector<std::string> taken(mounted.begin(), mounted.end());
        specification.name = VolumeNameSuggester::suggest(RamDiskSpecification::defaultName, taken);
    }
    return specification;
}

} // namespace ramdisk::cli
