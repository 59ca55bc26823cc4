#include "RamDiskCore/Validation/SpecificationRules.h"

namespace ramdisk {

std::vector<ValidationIssue> MinimumSizeRule::check(const RamDiskSpecification& specification,
                                                    const ValidationContext& /*context*/) const {
    const auto minimum = minimumSize(specification.fileSystem);
    if (specification.size < minimum) {
        return {{ValidationIssue::BelowMinimumSize{minimum, specification.fileSystem}}};
    }
    return {};
}

} // namespace ramdisk
