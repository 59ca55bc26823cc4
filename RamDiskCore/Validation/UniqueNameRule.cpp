#include "RamDiskCore/Validation/SpecificationRules.h"
#include "RamDiskCore/Values/Text.h"

#include <algorithm>

namespace ramdisk {

std::vector<ValidationIssue> UniqueNameRule::check(const RamDiskSpecification& specification,
                                                   const ValidationContext& context) const {
    const auto name = trimmed(specification.name);
    const auto isTaken = [name](const std::set<std::string>& names) {
        return std::any_of(names.begin(), names.end(),
                           [name](const std::string& other) { return namesEqual(name, other); });
    };
    if (isTaken(context.mountedVolumeNames)) {
        return {{ValidationIssue::NameInUse{std::string(name)}}};
    }
    if (isTaken(context.startupDiskNames)) {
        return {{ValidationIssue::NameOfStartupDisk{std::string(name)}}};
    }
    return {};
}

} // namespace ramdisk
