#pragma once

#include "RamDiskCore/Validation/SpecificationRule.h"
#include "RamDiskCore/Validation/ValidationReport.h"

#include <memory>
#include <vector>

namespace ramdisk {

/// Runs every rule, whatever the earlier ones found, so that a user sees all faults at once.
class RamDiskSpecificationValidator {
public:
    using Rules = std::vector<std::shared_ptr<const SpecificationRule>>;

    /// With the rules for names, uniqueness, smallest size, memory and encryption, in this order.
    RamDiskSpecificationValidator();
    explicit RamDiskSpecificationValidator(Rules rules);

    [[nodiscard]] ValidationReport validate(const RamDiskSpecification& specification,
                                            const ValidationContext& context) const;

private:
    Rules rules_;
};

} // namespace ramdisk
