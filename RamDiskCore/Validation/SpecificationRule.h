#pragma once

#include "RamDiskCore/Ports/Port.h"
#include "RamDiskCore/Validation/ValidationContext.h"
#include "RamDiskCore/Values/RamDiskSpecification.h"
#include "RamDiskCore/Values/ValidationIssue.h"

#include <vector>

namespace ramdisk {

/// One rule that a requested disk must obey: a pure function of the request and of the machine's state.
class SpecificationRule : public Port {
public:
    /// What is wrong with the request according to this rule; empty when nothing is.
    [[nodiscard]] virtual std::vector<ValidationIssue> check(const RamDiskSpecification& specification,
                                                             const ValidationContext& context) const = 0;
};

} // namespace ramdisk
