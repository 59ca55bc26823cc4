#include "tramdisk/SpecificationDefaults.h"

#include "RamDiskCore/Validation/VolumeNameSuggester.h"

#include <vector>

namespace ramdisk::cli {

RamDiskSpecification specificationFrom(const SpecificationOptions& options, const RamDiskServices& services) {
    RamDiskSpecification specification;
    specification.size = options.size.value_or(specification.size);
    specification.fileSystem = options.fileSystem.value_or(specification.fileSystem);
    specification.access = options.access.value_or(specification.access);
    specification.isIndexingEnabled = options.isIndexingEnabled;
    if (options.name) {
        specification.name = *options.name;
    } else {
        const auto mounted = services.validationContext.volumes->volumeNames(std::nullopt);
        const std::vector<std::string> taken(mounted.begin(), mounted.end());
        specification.name = VolumeNameSuggester::suggest(RamDiskSpecification::defaultName, taken);
    }
    return specification;
}

} // namespace ramdisk::cli
